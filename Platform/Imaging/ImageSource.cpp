#include "Platform/Imaging/ImageSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "Platform/Imaging/Private/Decoders.h"

namespace tavrel {
namespace {

struct Format {
  std::string_view signature;
  Expected<std::shared_ptr<ImageSource>> (*create)(std::shared_ptr<DataProvider> data, std::string name);
};

constexpr Format kFormats[] = {
    {"\x89PNG\r\n\x1a\n", createPngSource},
    {"\xFF\xD8\xFF", createJpegSource},
    {"GIF87a", createGifSource},
    {"GIF89a", createGifSource},
};

}  // namespace

tl::unexpected<Error> damagedPicture(std::string_view name, std::string_view reason) {
  return failure(ImagingErrorCode::damagedPicture, fmt::format("{} is damaged: {}", name, reason));
}

Expected<void> checkPictureSize(const std::string& name, std::size_t width, std::size_t height) {
  if (width == 0 || height == 0)
    return failure(ImagingErrorCode::noPixels, fmt::format("{} has no pixels: {}x{}", name, width, height));
  if (width > ImageSource::kMostPixels / height) {
    return failure(ImagingErrorCode::pictureTooLarge, fmt::format("{} is too large: {}x{}, the most is {} pixels", name,
                                                                  width, height, ImageSource::kMostPixels));
  }
  return {};
}

Expected<std::shared_ptr<ImageSource>> ImageSource::create(Data data, std::string name) {
  return create(DataProvider::create(std::move(data)), std::move(name));
}

Expected<std::shared_ptr<ImageSource>> ImageSource::create(std::shared_ptr<DataProvider> data, std::string name) {
  const std::span<const std::uint8_t> bytes = data->bytes();
  for (const Format& format : kFormats) {
    if (bytes.size() >= format.signature.size() &&
        std::equal(format.signature.begin(), format.signature.end(), bytes.begin(),
                   [](char expected, std::uint8_t actual) { return static_cast<std::uint8_t>(expected) == actual; })) {
      return format.create(std::move(data), std::move(name));
    }
  }
  return failure(ImagingErrorCode::unknownFormat, fmt::format("{} is not a PNG, JPEG or GIF picture", name));
}

Expected<std::shared_ptr<ImageSource>> ImageSource::createWithFile(const std::filesystem::path& path) {
  auto data = readFile(path);
  if (!data) return tl::unexpected(data.error());
  return create(std::move(*data), path.string());
}

}  // namespace tavrel
