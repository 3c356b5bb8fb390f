#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"

namespace tavrel {

// One decoder for each format; `name` is what errors call the picture.
Expected<std::shared_ptr<ImageSource>> createPngSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createJpegSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createGifSource(std::shared_ptr<DataProvider> data, std::string name);

/// "NAME is damaged: REASON"
tl::unexpected<Error> damagedPicture(std::string_view name, std::string_view reason);
/// Fails when a picture of this size has no pixels or too many.
Expected<void> checkPictureSize(const std::string& name, std::size_t width, std::size_t height);

}  // namespace tavrel
