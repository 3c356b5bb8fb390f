#pragma once

#include <filesystem>
#include <string_view>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Writes pictures, through libpng and libjpeg-turbo. Any thread.
class TAVREL_API ImageDestination {
 public:
  static constexpr double kDefaultQuality = 0.92;

  /// Writes PNG or JPEG, by the name's extension (.png, .jpg, .jpeg). The file stands upright: the image's orientation
  /// is carried out. Under the final name there is a whole file or what was there before. Fails for another extension
  /// (`ImagingErrorCode::unsupportedFormat`), for an image without pixels (`noPixels`), and ("posix") with the system's
  /// reason.
  static Expected<void> write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                              double quality = kDefaultQuality);
  /// The bytes of such a file; `type` is "image/png" or "image/jpeg". PNG keeps transparency; JPEG, whose quality runs
  /// from 0 to 1, has the picture over black.
  static Expected<Data> encode(const std::shared_ptr<Image>& image, std::string_view type,
                               double quality = kDefaultQuality);
};

}  // namespace tavrel
