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

/// The pictures in a PNG, JPEG or GIF file, told apart by content; through libpng, libjpeg-turbo, libexif and giflib.
///
/// Opaque pictures come as `kBitmapOpaqueBGRX`, others as `kBitmapPremultipliedBGRA`; both go to the GPU as they are.
/// The frames of a GIF come as they are seen: laid over the ones before, in the size of the whole, which starts
/// transparent; "restore to background" makes transparent again. They are unpacked when asked for, so that a source
/// takes the memory of a picture or three, however many there are. One thread at a time.
class TAVREL_API ImageSource {
 public:
  /// The most pixels that a picture may have; a larger one is an error, before memory is taken for it.
  static constexpr std::size_t kMostPixels = std::size_t{1} << 28;
  /// The most pixels that a picture of a GIF may have.
  static constexpr std::size_t kMostPixelsOfGif = std::size_t{1} << 26;
  /// The most pixels, counted over all frames, that a GIF unpacks to; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfGifFrames = std::size_t{1} << 30;
  /// The most pixels in all pictures of a GIF together; frames beyond are left out.
  static constexpr std::size_t kMostPixelsOfGifPictures = std::size_t{1} << 32;

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

  /// "image/png", "image/jpeg" or "image/gif".
  virtual const char* type() const = 0;
  /// How many pictures there are; of a GIF that is cut off, those before the cut. A picture that is counted can still
  /// turn out to be damaged.
  virtual std::size_t count() const { return 1; }
  /// How often an animation is played, 0 for without end; nothing where the file does not say.
  virtual std::optional<int> loopCount() const { return std::nullopt; }
  /// Fails when there is no such picture (`noSuchPicture`) or its pixels are damaged (`damagedPicture`). The frames of
  /// a GIF are quickest in order; later ones are laid over what is whole of a damaged one.
  virtual Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) = 0;
  /// All empty when there is no such picture.
  virtual ImageProperties properties(std::size_t index) const = 0;
};

}  // namespace tavrel
