#include "Platform/Imaging/ImageDestination.h"

#include <fmt/format.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Encoders.h"
#include "Platform/Imaging/Private/JpegSegments.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngEncoding.h"
#include "Platform/Imaging/Private/ReplacingFile.h"

namespace tavrel {
namespace {

Expected<Data> encodePng(const Image& image, const ImageEncoding& encoding) {
  Data bytes;
  const auto take = [&](const std::uint8_t* part, std::size_t count) {
    bytes.insert(bytes.end(), part, part + count);
    return true;
  };
  if (const auto reason = writePng(image, encoding, take, [] {})) {
    return failure(ImagingErrorCode::encodingFailed, "cannot encode the PNG: " + *reason);
  }
  return bytes;
}

Expected<Data> encodeJpeg(const Image& image, const ImageEncoding& encoding) {
  const Bitmap pixels = premultipliedBGRA(image);
  const std::unique_ptr<void, int (*)(tjhandle)> compressor(tjInitCompress(), &tjDestroy);
  unsigned char* encoded = nullptr;
  unsigned long size = 0;
  const int percent = static_cast<int>(std::lround(std::fmin(1, std::fmax(0.01, encoding.quality)) * 100));
  const int result = tjCompress2(compressor.get(), pixels.pixels.data(), pixels.width, 0, pixels.height, TJPF_BGRX,
                                 &encoded, &size, percent >= 90 ? TJSAMP_444 : TJSAMP_420, percent, 0);
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(encoded, &tjFree);
  if (result != 0) {
    return failure(ImagingErrorCode::encodingFailed,
                   fmt::format("cannot encode the JPEG: {}", tjGetErrorStr2(compressor.get())));
  }
  Data bytes(encoded, encoded + size);
  addMetadataToJpeg(bytes, metadataFor(image, encoding));
  return bytes;
}

struct Format {
  std::string_view type;
  std::string_view extension;
  Expected<Data> (*encode)(const Image& image, const ImageEncoding& encoding);
};

constexpr Format kFormats[] = {
    {"image/png", ".png", encodePng},    {"image/jpeg", ".jpg", encodeJpeg}, {"image/jpeg", ".jpeg", encodeJpeg},
#if TAVREL_WITH_WEBP
    {"image/webp", ".webp", encodeWebp},
#endif
#if TAVREL_WITH_AVIF
    {"image/avif", ".avif", encodeAvif},
#endif
};

/// ".png, .jpg or .jpeg"
std::string listed(std::string_view Format::*member) {
  std::vector<std::string_view> names;
  for (const Format& format : kFormats) {
    if (names.empty() || names.back() != format.*member) names.push_back(format.*member);
  }
  const std::string_view last = names.back();
  names.pop_back();
  return fmt::format("{} or {}", fmt::join(names, ", "), last);
}

Expected<std::string_view> typeFor(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  for (const Format& format : kFormats) {
    if (extension == format.extension) return format.type;
  }
  return failure(ImagingErrorCode::unsupportedFormat,
                 fmt::format("{}: a picture's name ends in {}", path.string(), listed(&Format::extension)));
}

}  // namespace

Expected<Data> ImageDestination::encode(const std::shared_ptr<Image>& image, std::string_view type,
                                        const ImageEncoding& encoding) {
  if (!image || image->width() == 0 || image->height() == 0)
    return failure(ImagingErrorCode::noPixels, "the image has no pixels");
  for (const Format& format : kFormats) {
    if (type == format.type) return format.encode(*normalizedImage(image), encoding);
  }
  return failure(ImagingErrorCode::unsupportedFormat,
                 fmt::format("cannot encode {}: expected {}", type, listed(&Format::type)));
}

Expected<void> ImageDestination::write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                                       const ImageEncoding& encoding) {
  const auto type = typeFor(path);
  if (!type) return tl::unexpected(type.error());
  const auto bytes = encode(image, *type, encoding);
  if (!bytes) return tl::unexpected(bytes.error());
  ReplacingFile file(path);
  if (!file.write(*bytes) || !file.keep()) return file.systemFailure();
  return {};
}

}  // namespace tavrel
