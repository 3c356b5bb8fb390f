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
/// The frames of a GIF come as they are seen: laid over the ones before, in the size of the whole. One thread at a
/// time.
class TAVREL_API ImageSource {
 public:
  /// The most pixels that a picture may have; a larger one is an error, before memory is taken for it.
  static constexpr std::size_t kMostPixels = std::size_t{1} << 28;

  /// Looks at the header. Fails ("imaging") when the bytes are no picture of these kinds, or a damaged or too large
  /// one. `name` is what errors call it.
  static Expected<std::shared_ptr<ImageSource>> create(Data data, std::string name = "the data");
  /// The same for a file; fails ("posix") with the system's reason when it cannot be read.
  static Expected<std::shared_ptr<ImageSource>> createWithFile(const std::filesystem::path& path);

  virtual ~ImageSource() = default;

  /// "image/png", "image/jpeg" or "image/gif".
  virtual const char* type() const = 0;
  /// How many pictures there are; of a GIF that is cut off, those that are whole.
  virtual std::size_t count() const { return 1; }
  /// How often an animation is played, 0 for without end; nothing where the file does not say.
  virtual std::optional<int> loopCount() const { return std::nullopt; }
  /// Fails when there is no such picture or its pixels are damaged. The frames of a GIF are quickest in order.
  virtual Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) = 0;
  /// All empty when there is no such picture.
  virtual ImageProperties properties(std::size_t index) const = 0;
};

}  // namespace tavrel
