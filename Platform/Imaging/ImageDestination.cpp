#include "Platform/Imaging/ImageDestination.h"

#include <fmt/format.h>
#include <png.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <memory>
#include <string>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/ReplacingFile.h"

namespace tavrel {
namespace {

Expected<Data> encodePng(const Image& image) {
  const Bitmap pixels = straightRGBA(image);
  png_image description{};
  description.version = PNG_IMAGE_VERSION;
  description.width = static_cast<png_uint_32>(pixels.width);
  description.height = static_cast<png_uint_32>(pixels.height);
  description.format = PNG_FORMAT_RGBA;
  png_alloc_size_t size = 0;
  Data bytes;
  if (png_image_write_to_memory(&description, nullptr, &size, 0, pixels.pixels.data(), 0, nullptr) != 0) {
    bytes.resize(size);
    if (png_image_write_to_memory(&description, bytes.data(), &size, 0, pixels.pixels.data(), 0, nullptr) != 0) {
      return bytes;
    }
  }
  const std::string reason = description.message;
  png_image_free(&description);
  return failure(ImagingErrorCode::encodingFailed, "cannot encode the PNG: " + reason);
}

Expected<Data> encodeJpeg(const Image& image, double quality) {
  const Bitmap pixels = premultipliedBGRA(image);
  const std::unique_ptr<void, int (*)(tjhandle)> compressor(tjInitCompress(), &tjDestroy);
  unsigned char* encoded = nullptr;
  unsigned long size = 0;
  const int percent = static_cast<int>(std::lround(std::fmin(1, std::fmax(0.01, quality)) * 100));
  const int result = tjCompress2(compressor.get(), pixels.pixels.data(), pixels.width, 0, pixels.height, TJPF_BGRX,
                                 &encoded, &size, percent >= 90 ? TJSAMP_444 : TJSAMP_420, percent, 0);
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(encoded, &tjFree);
  if (result != 0) {
    return failure(ImagingErrorCode::encodingFailed,
                   fmt::format("cannot encode the JPEG: {}", tjGetErrorStr2(compressor.get())));
  }
  return Data(encoded, encoded + size);
}

Expected<std::string_view> typeFor(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  if (extension == ".png") return "image/png";
  if (extension == ".jpg" || extension == ".jpeg") return "image/jpeg";
  return failure(ImagingErrorCode::unsupportedFormat,
                 fmt::format("{}: a picture's name ends in .png, .jpg or .jpeg", path.string()));
}

}  // namespace

Expected<Data> ImageDestination::encode(const std::shared_ptr<Image>& image, std::string_view type, double quality) {
  if (!image || image->width() == 0 || image->height() == 0)
    return failure(ImagingErrorCode::noPixels, "the image has no pixels");
  const std::shared_ptr<Image> upright = normalizedImage(image);
  if (type == "image/png") return encodePng(*upright);
  if (type == "image/jpeg") return encodeJpeg(*upright, quality);
  return failure(ImagingErrorCode::unsupportedFormat,
                 fmt::format("cannot encode {}: expected image/png or image/jpeg", type));
}

Expected<void> ImageDestination::write(const std::shared_ptr<Image>& image, const std::filesystem::path& path,
                                       double quality) {
  const auto type = typeFor(path);
  if (!type) return tl::unexpected(type.error());
  const auto bytes = encode(image, *type, quality);
  if (!bytes) return tl::unexpected(bytes.error());
  ReplacingFile file(path);
  if (!file.write(*bytes) || !file.keep()) return file.systemFailure();
  return {};
}

}  // namespace tavrel
