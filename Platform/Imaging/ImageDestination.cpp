#include "Platform/Imaging/ImageDestination.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <png.h>
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"

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

/// A new file beside the final one, removed again unless it is kept.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::filesystem::path& finalPath)
      : finalPath_(finalPath), path_(finalPath.string() + ".XXXXXX") {
    descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (descriptor_ < 0) return;
    close(descriptor_);
    if (!isKept_) unlink(path_.c_str());
  }

  /// False, with errno set, when the bytes did not reach the disk under the final name.
  bool writeAndKeep(const Data& bytes) {
    if (descriptor_ < 0) return false;
    for (std::size_t written = 0; written < bytes.size();) {
      const ssize_t count = ::write(descriptor_, bytes.data() + written, bytes.size() - written);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return false;
      written += static_cast<std::size_t>(count);
    }
    const mode_t mask = umask(0);
    umask(mask);
    if (fchmod(descriptor_, 0666 & ~mask) != 0 || fsync(descriptor_) != 0) return false;
    isKept_ = rename(path_.c_str(), finalPath_.c_str()) == 0;
    return isKept_;
  }

 private:
  const std::filesystem::path finalPath_;
  std::string path_;
  int descriptor_ = -1;
  bool isKept_ = false;
};

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
  TemporaryFile file(path);
  if (!file.writeAndKeep(*bytes)) {
    const int error = errno;
    return failure("posix", error,
                   fmt::format("cannot write {}: {}", path.string(), std::generic_category().message(error)));
  }
  return {};
}

}  // namespace tavrel
