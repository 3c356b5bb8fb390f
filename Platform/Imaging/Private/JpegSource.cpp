#include <fmt/format.h>
#include <turbojpeg.h>

#include <span>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/JpegSegments.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

using Decompressor = std::unique_ptr<void, int (*)(tjhandle)>;

Decompressor makeDecompressor() { return {tjInitDecompress(), &tjDestroy}; }

struct JpegHeader {
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colorspace = 0;
};

bool readHeader(tjhandle decompressor, std::span<const std::uint8_t> data, JpegHeader& header) {
  return tjDecompressHeader3(decompressor, data.data(), data.size(), &header.width, &header.height, &header.subsampling,
                             &header.colorspace) == 0;
}

/// Inks to light. Programs store printing colours inverted, which libjpeg leaves as it is.
Bitmap lightOfInks(const Data& inks, int width, int height) {
  Bitmap bitmap(width, height);
  for (std::size_t i = 0; i < inks.size(); i += 4) {
    const int black = inks[i + 3];
    for (std::size_t c = 0; c < 3; ++c) {
      bitmap.pixels[i + 2 - c] = static_cast<std::uint8_t>(inks[i + c] * black / 255);
    }
    bitmap.pixels[i + 3] = 255;
  }
  return bitmap;
}

class JpegSource : public ImageSource {
 public:
  JpegSource(std::shared_ptr<DataProvider> data, std::string name, const JpegHeader& header)
      : data_(std::move(data)), name_(std::move(name)), header_(header), metadata_(metadataOfJpeg(data_->bytes())) {
    properties_.width = static_cast<std::size_t>(header.width);
    properties_.height = static_cast<std::size_t>(header.height);
    properties_.orientation = orientationOfExif(metadata_.exif);
  }

  const char* type() const override { return "image/jpeg"; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override { return decodedImage(index, {}); }
  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override {
    if (index != 0) return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no picture {}", name_, index));
    const bool isPrinted = header_.colorspace == TJCS_CMYK || header_.colorspace == TJCS_YCCK;
    const Decompressor decompressor = makeDecompressor();
    Data pixels(properties_.width * properties_.height * 4);
    if (tjDecompress2(decompressor.get(), data_->bytes().data(), data_->bytes().size(), pixels.data(), header_.width, 0,
                      header_.height, isPrinted ? TJPF_CMYK : TJPF_BGRX, 0) != 0) {
      return damagedPicture(name_, tjGetErrorStr2(decompressor.get()));
    }
    // What is printed is not shown by its inks' values in any case.
    const auto layout = isPrinted ? ColorTransform::Layout::cmykLight8 : ColorTransform::Layout::bgra8;
    const auto transform = decoding.keepsColors && isProfileOfRGB(metadata_.colorProfile) && !isPrinted
                               ? nullptr
                               : ColorTransform::toSRGB(metadata_.colorProfile, layout, ColorTransform::Layout::bgra8);
    if (transform) {
      transform->convert(pixels.data(), pixels.data(), pixels.size() / 4);
    } else if (isPrinted) {
      pixels = std::move(lightOfInks(pixels, header_.width, header_.height).pixels);
    }
    return Image::create(properties_.width, properties_.height, 8, 32, properties_.width * 4, kBitmapOpaqueBGRX,
                         DataProvider::create(std::move(pixels)))
        ->withScaleAndOrientation(1, properties_.orientation);
  }

  ImageProperties properties(std::size_t index) const override { return index == 0 ? properties_ : ImageProperties{}; }
  ImageMetadata metadata() const override { return metadata_; }

 private:
  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  const JpegHeader header_;
  const ImageMetadata metadata_;
  ImageProperties properties_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createJpegSource(std::shared_ptr<DataProvider> data, std::string name) {
  const Decompressor decompressor = makeDecompressor();
  JpegHeader header;
  if (!decompressor || !readHeader(decompressor.get(), data->bytes(), header)) {
    return damagedPicture(name, tjGetErrorStr2(decompressor.get()));
  }
  const auto checked =
      checkPictureSize(name, static_cast<std::size_t>(header.width), static_cast<std::size_t>(header.height));
  if (!checked) return tl::unexpected(checked.error());
  return std::make_shared<JpegSource>(std::move(data), std::move(name), header);
}

}  // namespace tavrel
