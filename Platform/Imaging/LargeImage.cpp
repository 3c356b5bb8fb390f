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
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"
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

/// An image of some rows that somebody else keeps.
std::shared_ptr<Image> imageOfRows(const Image& like, const std::uint8_t* rows, std::size_t count) {
  return Image::create(like.width(), count, 8, 32, like.bytesPerRow(), like.bitmapInfo(),
                       DataProvider::create(nullptr, rows, count * like.bytesPerRow(), nullptr));
}

}  // namespace

Expected<LargeImage> LargeImage::create(std::size_t width, std::size_t height, std::uint32_t bitmapInfo) {
  const std::filesystem::path folder = environmentVariable("TMPDIR").value_or("/var/tmp");
  const std::size_t size = width * height * 4;
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
  auto image = Image::create(width, height, 8, 32, width * 4, bitmapInfo, std::move(provider));
  return LargeImage(std::move(image), static_cast<std::uint8_t*>(bytes));
}

Expected<LargeImage> LargeImage::read(const std::filesystem::path& path) {
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
  auto large =
      create(reader.width(), reader.height(), reader.hasAlpha() ? kBitmapPremultipliedBGRA : kBitmapOpaqueBGRX);
  if (!large) return large;
  for (std::size_t y = 0; y < reader.height(); y += kRowsTogether) {
    const std::size_t count = std::min(kRowsTogether, reader.height() - y);
    for (std::size_t i = 0; i < count; ++i) {
      if (!reader.read(large->row(y + i))) return damagedPicture(path.string(), reader.message());
    }
    if (reader.hasAlpha()) multiplyByAlpha({large->row(y), count * reader.width() * 4});
    large->rest();
  }
  return large;
}

Expected<void> LargeImage::write(const std::filesystem::path& path) const {
  ReplacingFile file(path);
  PngRowWriter writer([&](const std::uint8_t* bytes, std::size_t count) { return file.write({bytes, count}); });
  bool isWritten = writer.begin(image_->width(), image_->height());
  for (std::size_t y = 0; isWritten && y < image_->height(); y += kRowsTogether) {
    const std::size_t count = std::min(kRowsTogether, image_->height() - y);
    Bitmap straight = straightRGBA(*imageOfRows(*image_, row(y), count));
    for (std::size_t i = 0; isWritten && i < count; ++i) isWritten = writer.write(straight.row(static_cast<int>(i)));
    rest();
  }
  if (!isWritten || !writer.end() || !file.keep()) return file.systemFailure();
  return {};
}

void LargeImage::rest() const {
  // The file keeps what it was given: the mapping is a shared one.
  madvise(pixels_, image_->height() * image_->bytesPerRow(), MADV_DONTNEED);
}

}  // namespace tavrel
