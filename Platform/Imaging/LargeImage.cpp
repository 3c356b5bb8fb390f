#include "Platform/Imaging/LargeImage.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "Platform/Foundation/Environment.h"
#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngEncoding.h"
#include "Platform/Imaging/Private/PngRows.h"
#include "Platform/Imaging/Private/ReplacingFile.h"

namespace tavrel {
namespace {

/// How many rows are worked on before memory is let go of again.
constexpr std::size_t kRowsTogether = 64;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

tl::unexpected<Error> systemFailure(const char* doing, const std::filesystem::path& path, int error) {
  return failure("posix", error,
                 fmt::format("cannot {} {}: {}", doing, path.string(), std::generic_category().message(error)));
}

}  // namespace

Expected<LargeImage> LargeImage::create(std::size_t width, std::size_t height, std::uint32_t bitmapInfo) {
  const bool isDeep = (bitmapInfo & kBitmapByteOrderMask) == kBitmapByteOrder16Little;
  const std::size_t pixelBytes = isDeep ? 8 : 4;
  const std::filesystem::path folder = environmentVariable("TMPDIR").value_or("/var/tmp");
  const std::size_t size = width * height * pixelBytes;
  std::string name = (folder / "tavrel.XXXXXX").string();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return systemFailure("make room for a picture in", folder, errno);
  unlink(name.c_str());
  const int full = posix_fallocate(descriptor, 0, static_cast<off_t>(size));
  void* const bytes = full == 0 ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0) : MAP_FAILED;
  const int error = full != 0 ? full : errno;
  close(descriptor);
  if (bytes == MAP_FAILED) return systemFailure("make room for a picture in", folder, error);
  auto provider = DataProvider::create(nullptr, bytes, size, [](void*, const void* mapped, std::size_t length) {
    munmap(const_cast<void*>(mapped), length);
  });
  auto image =
      Image::create(width, height, pixelBytes * 2, pixelBytes * 8, width * pixelBytes, bitmapInfo, std::move(provider));
  return LargeImage(std::move(image), static_cast<std::uint8_t*>(bytes));
}

Expected<LargeImage> LargeImage::read(const std::filesystem::path& path, const ImageDecoding& decoding) {
  const File file(std::fopen(path.c_str(), "rbe"), &std::fclose);
  if (!file) return systemFailure("read", path, errno);
  PngRowReader reader(file.get());
  if (!reader.begin()) {
    return failure(ImagingErrorCode::unknownFormat, fmt::format("{}: a picture of more than {} pixels has to be a PNG",
                                                                path.string(), ImageSource::kMostPixels));
  }
  if (reader.isInterlaced()) {
    return failure(ImagingErrorCode::pictureTooLarge,
                   fmt::format("{} is too large for an interlaced picture", path.string()));
  }
  using Layout = ColorTransform::Layout;
  const Layout stored = reader.isDeep() ? Layout::rgba16 : Layout::bgra8;
  const bool deep = decoding.keepsDepth && reader.isDeep();
  const auto transform =
      decoding.keepsColors && isProfileOfRGB(reader.metadata().colorProfile)
          ? nullptr
          : ColorTransform::toSRGB(reader.metadata().colorProfile, stored, deep ? Layout::rgba16 : Layout::bgra8);
  const bool readsDeep = deep || (transform && reader.isDeep());
  if (!reader.prepare(readsDeep)) return damagedPicture(path.string(), reader.message());
  const std::uint32_t opaque = deep ? kBitmapOpaqueRGBX16 : kBitmapOpaqueBGRX;
  const std::uint32_t transparent = deep ? kBitmapPremultipliedRGBA16 : kBitmapPremultipliedBGRA;
  auto large = create(reader.width(), reader.height(), reader.hasAlpha() ? transparent : opaque);
  if (!large) return large;
  Data row(reader.width() * (readsDeep ? 8 : 4));
  for (std::size_t y = 0; y < reader.height(); ++y) {
    std::uint8_t* const target = large->row(y);
    if (!reader.read(row.data())) return damagedPicture(path.string(), reader.message());
    if (transform) {
      transform->convert(row.data(), target, reader.width());
    } else {
      std::copy(row.begin(), row.end(), target);
    }
    const std::span<std::uint8_t> pixels = {target, large->image()->bytesPerRow()};
    if (reader.hasAlpha()) deep ? multiplyByAlphaDeep(pixels) : multiplyByAlpha(pixels);
    if (y % kRowsTogether == kRowsTogether - 1) large->rest();
  }
  large->metadata_ = reader.metadata();
  large->image_ = large->image_->withScaleAndOrientation(1, orientationOfExif(reader.metadata().exif));
  return large;
}

Expected<void> LargeImage::write(const std::filesystem::path& path, const ImageEncoding& encoding) const {
  ReplacingFile file(path);
  const auto sink = [&](const std::uint8_t* bytes, std::size_t count) { return file.write({bytes, count}); };
  if (writePng(*image_, encoding, sink, [&] { rest(); }) || !file.keep()) return file.systemFailure();
  return {};
}

void LargeImage::rest() const {
  // The file keeps what it was given: the mapping is a shared one.
  madvise(pixels_, image_->height() * image_->bytesPerRow(), MADV_DONTNEED);
}

}  // namespace tavrel
