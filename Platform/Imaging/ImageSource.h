#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// What a file says about one of its pictures.
struct ImageProperties {
  std::size_t width = 0;
  std::size_t height = 0;
  ImageOrientation orientation = ImageOrientation::up;
  /// Seconds that a frame is shown, as stored; nothing where the frame does not say.
  std::optional<double> unclampedDelayTime;
  /// The same, with times below 0.05 s, which programs take for "as fast as possible", replaced by 0.1 s.
  std::optional<double> delayTime;
};

/// The pictures in a PNG, JPEG, GIF, WebP or AVIF file, told apart by content; through libpng, libjpeg-turbo, libexif,
/// giflib, libwebp and libavif, the last two where the build has them (`TAVREL_WITH_WEBP`, `TAVREL_WITH_AVIF`).
///
/// Opaque pictures come as `kBitmapOpaqueBGRX`, others as `kBitmapPremultipliedBGRA`; both go to the GPU as they are.
/// The frames of an animation come as they are seen: laid over the ones before, in the size of the whole, which starts
/// transparent, as browsers show them; "restore to background" makes transparent again. A frame that is cut off or
/// shorter than it says is seen as far as it goes, in a GIF. Frames are unpacked when asked for, with check-points of
/// at most 128 MB so that any one is near; for the rest a source takes the memory of a picture or three, however many
/// there are. One thread at a time.
class TAVREL_API ImageSource {
 public:
  /// The most pixels that a picture may have; a larger one is an error, before memory is taken for it.
  static constexpr std::size_t kMostPixels = std::size_t{1} << 28;
  /// The most pixels that a picture of an animation may have.
  static constexpr std::size_t kMostPixelsOfAnimation = std::size_t{1} << 26;
  /// The most pixels, counted over all frames, that an animation unpacks to; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfAnimationFrames = std::size_t{1} << 30;
  /// The most pixels in all pictures of an animation together; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfAnimationPictures = std::size_t{1} << 32;

  /// Looks at the header. Fails when the bytes are no picture of these kinds (`ImagingErrorCode::unknownFormat`), or a
  /// damaged (`damagedPicture`), empty (`noPixels`) or too large one (`pictureTooLarge`). `name` is what errors call
  /// it.
  static Expected<std::shared_ptr<ImageSource>> create(Data data, std::string name = "the data");
  /// The same for bytes that others use too.
  static Expected<std::shared_ptr<ImageSource>> create(std::shared_ptr<DataProvider> data,
                                                       std::string name = "the data");
  /// The same for a file; fails ("posix") with the system's reason when it cannot be read.
  static Expected<std::shared_ptr<ImageSource>> createWithFile(const std::filesystem::path& path);

  virtual ~ImageSource() = default;

  /// "image/png", "image/apng" for an animated one, "image/jpeg", "image/gif", "image/webp" or "image/avif".
  virtual const char* type() const = 0;
  /// How many pictures there are; of a file that is cut off, those before the cut. A picture that is counted can still
  /// turn out to be damaged.
  virtual std::size_t count() const { return 1; }
  /// False when it is known without unpacking that the picture holds nothing that can be read.
  virtual bool holdsPicture(std::size_t index) const { return index < count(); }
  /// How often an animation is played, 0 for without end; nothing where the file does not say.
  virtual std::optional<int> loopCount() const { return std::nullopt; }
  /// Fails when there is no such picture (`noSuchPicture`) or nothing of it can be read (`damagedPicture`). The frames
  /// of an animation are quickest in order.
  virtual Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) = 0;
  /// All empty when there is no such picture.
  virtual ImageProperties properties(std::size_t index) const = 0;
  /// Unpacks a few more frames for the check-points from which any frame of an animation is near. False when no more
  /// are wanted. They are also made as frames are asked for.
  virtual bool prepareJumps() { return false; }
  /// Has an `imageAtIndex` of an animation that is under way, and all later ones, fail soon (`givenUp`). Any thread.
  virtual void giveUp() {}
};

}  // namespace tavrel
