#include <fmt/format.h>

#include <span>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngRows.h"

namespace tavrel {
namespace {

using Layout = ColorTransform::Layout;

/// The straight pixels of a PNG whose header is read: R, G, B, A of 16 bits when `deep`, else B, G, R, A.
bool readPixels(PngRowReader& reader, bool deep, bool keepsColors, Data& pixels) {
  const auto transform = keepsColors ? nullptr
                                     : ColorTransform::toSRGB(reader.metadata().colorProfile,
                                                              reader.isDeep() ? Layout::rgba16 : Layout::bgra8,
                                                              deep ? Layout::rgba16 : Layout::bgra8);
  const bool readsDeep = deep || (transform && reader.isDeep());
  if (!reader.prepare(readsDeep)) return false;
  const std::size_t count = reader.width() * reader.height();
  pixels.resize(count * (readsDeep ? 8 : 4));
  if (!reader.readAll(pixels.data())) return false;
  if (!transform) return true;
  if (readsDeep == deep) {
    transform->convert(pixels.data(), pixels.data(), count);
    return true;
  }
  Data row(reader.width() * 4);
  for (std::size_t y = 0; y < reader.height(); ++y) {  // which ends before the next one that is read
    transform->convert(pixels.data() + y * row.size() * 2, row.data(), reader.width());
    std::copy(row.begin(), row.end(), pixels.begin() + static_cast<std::ptrdiff_t>(y * row.size()));
  }
  pixels.resize(count * 4);
  return true;
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
    const bool isDeep = decoding.keepsDepth && reader.isDeep();
    Data pixels;
    if (!readPixels(reader, isDeep, decoding.keepsColors && isProfileOfRGB(metadata_.colorProfile), pixels))
      return damagedPicture(name_, reader.message());
    if (reader.hasAlpha()) isDeep ? multiplyByAlphaDeep(pixels) : multiplyByAlpha(pixels);
    return imageOfPixels(std::move(pixels), reader.width(), isDeep, !reader.hasAlpha())
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
  if (!readPixels(reader, false, false, straight.pixels)) return reader.message();
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
