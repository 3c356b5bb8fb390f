#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {

// One decoder for each format; `name` is what errors call the picture.
Expected<std::shared_ptr<ImageSource>> createPngSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createJpegSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createGifSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createApngSource(std::shared_ptr<DataProvider> data, std::string name);
// Where the build has them; see TavrelBackends.cmake.
Expected<std::shared_ptr<ImageSource>> createWebpSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createAvifSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createTiffSource(std::shared_ptr<DataProvider> data, std::string name);
Expected<std::shared_ptr<ImageSource>> createHeifSource(std::shared_ptr<DataProvider> data, std::string name);

bool isAnimatedPng(std::span<const std::uint8_t> bytes);
/// The picture of a whole PNG, of the bitmap's size, as straight B, G, R, A; the reason when that fails.
std::optional<std::string> decodePng(std::span<const std::uint8_t> bytes, Bitmap& straight);

/// "NAME is damaged: REASON"
tl::unexpected<Error> damagedPicture(std::string_view name, std::string_view reason);
/// Fails when a picture of this size has no pixels or too many.
Expected<void> checkPictureSize(const std::string& name, std::size_t width, std::size_t height);

}  // namespace tavrel
