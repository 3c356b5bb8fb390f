#include <fmt/format.h>

#include <span>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngRows.h"
#include "Platform/Imaging/Private/StoredPixels.h"

namespace tavrel {
namespace {

/// The pixels of a PNG whose header is read, of 16 bits where they have to be: that is a second time as much memory.
bool readPixels(PngRowReader& reader, const ImageDecoding& decoding, StoredPixels& stored) {
  const bool isConverted = ColorTransform::toSRGB(reader.metadata().colorProfile, ColorTransform::Layout::rgba16,
                                                  ColorTransform::Layout::bgra8) != nullptr;
  stored = {.width = reader.width(),
            .isDeep = reader.isDeep() && (decoding.keepsDepth || isConverted),
            .isOpaque = !reader.hasAlpha()};
  if (!reader.prepare(stored.isDeep)) return false;
  stored.bytes.resize(reader.width() * reader.height() * (stored.isDeep ? 8 : 4));
  return reader.readAll(stored.bytes.data());
}

class PngSource : public ImageSource {
 public:
  PngSource(std::shared_ptr<DataProvider> data, std::string name, const PngRowReader& reader)
      : data_(std::move(data)), name_(std::move(name)), metadata_(reader.metadata()) {
    properties_.width = reader.width();
    properties_.height = reader.height();
    properties_.bitsPerComponent = reader.isDeep() ? 16 : 8;
    properties_.orientation = orientationOfExif(metadata_.exif);
  }

  const char* type() const override { return "image/png"; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override { return decodedImage(index, {}); }
  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override {
    if (index != 0) return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no picture {}", name_, index));
    PngRowReader reader(data_->bytes());
    if (!reader.begin()) return damagedPicture(name_, reader.message());
    StoredPixels pixels;
    if (!readPixels(reader, decoding, pixels)) return damagedPicture(name_, reader.message());
    return imageOfStoredPixels(std::move(pixels), metadata_.colorProfile, decoding)
        ->withScaleAndOrientation(1, properties_.orientation);
  }

  ImageProperties properties(std::size_t index) const override { return index == 0 ? properties_ : ImageProperties{}; }
  ImageMetadata metadata() const override { return metadata_; }

 private:
  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  const ImageMetadata metadata_;
  ImageProperties properties_;
};

}  // namespace

std::optional<std::string> decodePng(std::span<const std::uint8_t> bytes, Bitmap& straight) {
  PngRowReader reader(bytes);
  if (!reader.begin()) return reader.message();
  if (reader.width() * reader.height() * 4 != straight.pixels.size()) return "its sizes contradict each other";
  StoredPixels stored;
  if (!readPixels(reader, {}, stored)) return reader.message();
  convertStoredPixels(stored, reader.metadata().colorProfile, {});
  straight.pixels = std::move(stored.bytes);
  return std::nullopt;
}

Expected<std::shared_ptr<ImageSource>> createPngSource(std::shared_ptr<DataProvider> data, std::string name) {
  if (isAnimatedPng(data->bytes())) {
    // Where that cannot be played, the picture for those who show no animations is there still.
    if (auto animation = createApngSource(data, name)) return animation;
  }
  PngRowReader reader(data->bytes());
  if (!reader.begin()) return damagedPicture(name, reader.message());
  if (const auto checked = checkPictureSize(name, reader.width(), reader.height()); !checked) {
    return tl::unexpected(checked.error());
  }
  return std::make_shared<PngSource>(std::move(data), std::move(name), reader);
}

}  // namespace tavrel
