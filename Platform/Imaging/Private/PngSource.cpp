#include <fmt/format.h>
#include <png.h>

#include <span>
#include <utility>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

/// libpng's reader of a whole picture from memory.
class PngReader {
 public:
  PngReader() { image_.version = PNG_IMAGE_VERSION; }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;
  ~PngReader() { png_image_free(&image_); }

  bool begin(std::span<const std::uint8_t> bytes) {
    if (png_image_begin_read_from_memory(&image_, bytes.data(), bytes.size()) == 0) return false;
    // Without a word about colours 16 bits mean what 8 bits do, not linear light.
    image_.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
    return true;
  }
  bool hasAlpha() const { return (image_.format & PNG_FORMAT_FLAG_ALPHA) != 0; }
  std::size_t width() const { return image_.width; }
  std::size_t height() const { return image_.height; }
  /// Reads straight B, G, R, A.
  bool finish(Data& pixels) {
    image_.format = PNG_FORMAT_BGRA;
    return png_image_finish_read(&image_, nullptr, pixels.data(), 0, nullptr) != 0;
  }
  /// Of a call that failed. Warnings do not make calls fail.
  const char* message() const { return image_.message; }

 private:
  png_image image_{};
};

class PngSource : public ImageSource {
 public:
  PngSource(std::shared_ptr<DataProvider> data, std::string name, std::size_t width, std::size_t height)
      : data_(std::move(data)), name_(std::move(name)) {
    properties_.width = width;
    properties_.height = height;
  }

  const char* type() const override { return "image/png"; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override {
    if (index != 0) return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no picture {}", name_, index));
    PngReader reader;
    if (!reader.begin(data_->bytes())) return damagedPicture(name_, reader.message());
    const bool hasAlpha = reader.hasAlpha();
    Bitmap bitmap(static_cast<int>(reader.width()), static_cast<int>(reader.height()));
    if (!reader.finish(bitmap.pixels)) return damagedPicture(name_, reader.message());
    if (hasAlpha) multiplyByAlpha(bitmap.pixels);
    return imageOf(std::move(bitmap), !hasAlpha);
  }

  ImageProperties properties(std::size_t index) const override { return index == 0 ? properties_ : ImageProperties{}; }

 private:
  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  ImageProperties properties_;
};

}  // namespace

std::optional<std::string> decodePng(std::span<const std::uint8_t> bytes, Bitmap& straight) {
  PngReader reader;
  if (!reader.begin(bytes)) return reader.message();
  if (reader.width() * reader.height() * 4 != straight.pixels.size()) return "its sizes contradict each other";
  if (!reader.finish(straight.pixels)) return reader.message();
  return std::nullopt;
}

Expected<std::shared_ptr<ImageSource>> createPngSource(std::shared_ptr<DataProvider> data, std::string name) {
  if (isAnimatedPng(data->bytes())) {
    // Where that cannot be played, the picture for those who show no animations is there still.
    if (auto animation = createApngSource(data, name)) return animation;
  }
  PngReader reader;
  if (!reader.begin(data->bytes())) return damagedPicture(name, reader.message());
  if (const auto checked = checkPictureSize(name, reader.width(), reader.height()); !checked) {
    return tl::unexpected(checked.error());
  }
  return std::make_shared<PngSource>(std::move(data), std::move(name), reader.width(), reader.height());
}

}  // namespace tavrel
