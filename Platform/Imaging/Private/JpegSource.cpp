#include <fmt/format.h>
#include <turbojpeg.h>

#include <span>
#include <utility>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/JpegSegments.h"
#include "Platform/Imaging/Private/StoredPixels.h"

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
    const auto image =
        isPrinted ? imageOfInks(std::move(pixels), properties_.width, metadata_.colorProfile)
                  : imageOfStoredPixels({.bytes = std::move(pixels), .width = properties_.width, .isOpaque = true},
                                        metadata_.colorProfile, decoding);
    return image->withScaleAndOrientation(1, properties_.orientation);
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
