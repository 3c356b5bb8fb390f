#include <avif/avif.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <thread>

#include "Platform/Imaging/Private/Encoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngEncoding.h"

namespace tavrel {
namespace {

struct ImageDeleter {
  void operator()(avifImage* image) const { avifImageDestroy(image); }
};
struct EncoderDeleter {
  void operator()(avifEncoder* encoder) const { avifEncoderDestroy(encoder); }
};
struct Output {
  avifRWData data = AVIF_DATA_EMPTY;
  ~Output() { avifRWDataFree(&data); }
};

}  // namespace

Expected<Data> encodeAvif(const Image& image, const ImageEncoding& encoding) {
  const ImageMetadata metadata = metadataFor(image, encoding);
  const bool deep = encoding.bitsPerComponent.value_or(isDeep(image) ? 16 : 8) > 8;
  const bool isLossless = encoding.quality >= 1;
  const std::unique_ptr<avifImage, ImageDeleter> picture(
      avifImageCreate(static_cast<int>(image.width()), static_cast<int>(image.height()), deep ? 12 : 8,
                      encoding.quality >= 0.9 ? AVIF_PIXEL_FORMAT_YUV444 : AVIF_PIXEL_FORMAT_YUV420));
  const std::unique_ptr<avifEncoder, EncoderDeleter> encoder(avifEncoderCreate());
  if (!picture || !encoder) return failure(ImagingErrorCode::encodingFailed, "cannot encode the AVIF: no memory");
  picture->yuvRange = AVIF_RANGE_FULL;
  picture->colorPrimaries = AVIF_COLOR_PRIMARIES_BT709;
  picture->transferCharacteristics = AVIF_TRANSFER_CHARACTERISTICS_SRGB;
  picture->matrixCoefficients = isLossless ? AVIF_MATRIX_COEFFICIENTS_IDENTITY : AVIF_MATRIX_COEFFICIENTS_BT601;
  if (!metadata.colorProfile.empty()) {
    avifImageSetProfileICC(picture.get(), metadata.colorProfile.data(), metadata.colorProfile.size());
    picture->colorPrimaries = AVIF_COLOR_PRIMARIES_UNSPECIFIED;
    picture->transferCharacteristics = AVIF_TRANSFER_CHARACTERISTICS_UNSPECIFIED;
  }
  if (!metadata.exif.empty()) avifImageSetMetadataExif(picture.get(), metadata.exif.data(), metadata.exif.size());
  if (!metadata.xmp.empty()) avifImageSetMetadataXMP(picture.get(), metadata.xmp.data(), metadata.xmp.size());

  Data pixels = deep ? straightRGBA16(image) : straightRGBA(image).pixels;
  avifRGBImage source;
  avifRGBImageSetDefaults(&source, picture.get());
  source.format = AVIF_RGB_FORMAT_RGBA;
  source.depth = deep ? 16 : 8;
  source.ignoreAlpha = isOpaqueThroughout(image) ? AVIF_TRUE : AVIF_FALSE;
  source.pixels = pixels.data();
  source.rowBytes = static_cast<std::uint32_t>(image.width() * (deep ? 8 : 4));
  avifResult result = avifImageRGBToYUV(picture.get(), &source);

  const auto quantizer = static_cast<int>(std::lround((1 - encoding.quality) * AVIF_QUANTIZER_WORST_QUALITY));
  encoder->minQuantizer = encoder->maxQuantizer = std::clamp(quantizer, 0, AVIF_QUANTIZER_WORST_QUALITY);
  encoder->minQuantizerAlpha = encoder->maxQuantizerAlpha = encoder->minQuantizer;
  encoder->speed = 6;
  encoder->maxThreads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 8U));
  Output output;
  if (result == AVIF_RESULT_OK) result = avifEncoderWrite(encoder.get(), picture.get(), &output.data);
  if (result != AVIF_RESULT_OK)
    return failure(ImagingErrorCode::encodingFailed,
                   fmt::format("cannot encode the AVIF: {}", avifResultToString(result)));
  return Data(output.data.data, output.data.data + output.data.size);
}

}  // namespace tavrel
