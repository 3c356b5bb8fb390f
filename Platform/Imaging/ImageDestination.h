#pragma once

#include <filesystem>
#include <string_view>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Encodes images, through libpng and libjpeg-turbo. Any thread.
class TAVREL_API ImageDestination {
 public:
  static constexpr double kDefaultQuality = 0.92;

  /// Writes a PNG or JPEG file, by extension (.png, .jpg, .jpeg), with the pixels rotated upright. The file is replaced
  /// atomically. Fails for any other extension (`ImagingErrorCode::unsupportedFormat`), an empty image (`noPixels`),
  /// and with the system's error ("posix").
  static Expected<void> write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                              double quality = kDefaultQuality);
  /// The bytes of such a file; `type` is "image/png" or "image/jpeg". PNG keeps transparency; JPEG shows the image over
  /// black. `quality`, from 0 to 1, is for JPEG.
  static Expected<Data> encode(const std::shared_ptr<Image>& image, std::string_view type,
                               double quality = kDefaultQuality);
};

}  // namespace tavrel
