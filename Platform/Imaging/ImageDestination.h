#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageMetadata.h"

namespace tavrel {

/// How an image is written.
struct ImageEncoding {
  double quality = 0.92;  ///< 0 to 1, for lossy formats
  /// 8 or 16, for PNG and AVIF (which stores 12 instead of 16); nothing for the image's own.
  std::optional<int> bitsPerComponent = std::nullopt;
  /// Carried to the file; EXIF and XMP are made to say that the pixels are upright. `colorProfile` is that of the
  /// image's colours.
  ImageMetadata metadata = {};
};

/// Encodes images, through libpng, libjpeg-turbo, libwebp and libavif; the last two are optional. Any thread.
class TAVREL_API ImageDestination {
 public:
  static constexpr double kDefaultQuality = 0.92;

  /// Writes a file, by extension (.png, .jpg, .jpeg, .webp, .avif), with the pixels rotated upright. The file is
  /// replaced atomically. Fails for any other extension (`ImagingErrorCode::unsupportedFormat`), an empty image
  /// (`noPixels`), and with the system's error ("posix").
  static Expected<void> write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                              double quality = kDefaultQuality) {
    return write(image, path, ImageEncoding{.quality = quality});
  }
  static Expected<void> write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                              const ImageEncoding& encoding);
  /// The bytes of such a file; `type` is "image/png", "image/jpeg", "image/webp" or "image/avif". All but JPEG keep
  /// transparency, where there is any; JPEG shows the image over black. WebP and AVIF of quality 1 lose nothing.
  static Expected<Data> encode(const std::shared_ptr<Image>& image, std::string_view type,
                               double quality = kDefaultQuality) {
    return encode(image, type, ImageEncoding{.quality = quality});
  }
  static Expected<Data> encode(const std::shared_ptr<Image>& image, std::string_view type,
                               const ImageEncoding& encoding);
};

}  // namespace tavrel
