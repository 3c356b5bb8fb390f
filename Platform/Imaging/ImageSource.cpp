#include "Platform/Imaging/ImageSource.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "Platform/Imaging/Private/Decoders.h"

namespace tavrel {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// Whether the bytes begin with these; a question mark stands for any.
bool beginsWith(Bytes bytes, std::string_view pattern) {
  return bytes.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), bytes.begin(), [](char expected, std::uint8_t actual) {
           return expected == '?' || static_cast<std::uint8_t>(expected) == actual;
         });
}

struct Format {
  std::string_view beginning;
  Expected<std::shared_ptr<ImageSource>> (*create)(std::shared_ptr<DataProvider> data, std::string name);
};

constexpr Format kFormats[] = {
    {"\x89PNG\r\n\x1a\n", createPngSource},
    {"\xFF\xD8\xFF", createJpegSource},
    {"GIF87a", createGifSource},
    {"GIF89a", createGifSource},
#if TAVREL_WITH_WEBP
    {"RIFF????WEBP", createWebpSource},
#endif
#if TAVREL_WITH_AVIF
    {"????ftypavi", createAvifSource},  // avif or avis
#endif
#if TAVREL_WITH_TIFF
    {{"II*\0", 4}, createTiffSource},
    {{"MM\0*", 4}, createTiffSource},
    {{"II+\0", 4}, createTiffSource},  // with places of 64 bits
    {{"MM\0+", 4}, createTiffSource},
#endif
#if TAVREL_WITH_HEIF
    {"????ftyphei", createHeifSource},  // heic, heix and others
    {"????ftyphev", createHeifSource},
    {"????ftypmif1", createHeifSource},
#endif
};

constexpr const char* kKinds[] = {
    "PNG",  "JPEG", "GIF",
#if TAVREL_WITH_WEBP
    "WebP",
#endif
#if TAVREL_WITH_AVIF
    "AVIF",
#endif
#if TAVREL_WITH_TIFF
    "TIFF",
#endif
#if TAVREL_WITH_HEIF
    "HEIC",
#endif
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
  const Bytes bytes = data->bytes();
  if (bytes.empty()) return failure(ImagingErrorCode::nothingGiven, fmt::format("{} is empty", name));
  for (const Format& format : kFormats) {
    if (beginsWith(bytes, format.beginning)) return format.create(std::move(data), std::move(name));
  }
  return failure(ImagingErrorCode::unknownFormat,
                 fmt::format("{} is not a {} or {} picture", name,
                             fmt::join(std::begin(kKinds), std::end(kKinds) - 1, ", "), std::end(kKinds)[-1]));
}

Expected<std::shared_ptr<ImageSource>> ImageSource::createWithFile(const std::filesystem::path& path) {
  auto data = readFile(path);
  if (!data) return tl::unexpected(data.error());
  return create(std::move(*data), path.string());
}

}  // namespace tavrel
