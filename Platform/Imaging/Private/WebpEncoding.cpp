#include <fmt/format.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <memory>

#include "Platform/Imaging/Private/Encoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/PngEncoding.h"

namespace tavrel {
namespace {

struct MuxDeleter {
  void operator()(WebPMux* mux) const { WebPMuxDelete(mux); }
};

tl::unexpected<Error> encodingFailure(std::string_view reason) {
  return failure(ImagingErrorCode::encodingFailed, fmt::format("cannot encode the WebP: {}", reason));
}

/// The picture alone.
Expected<Data> encodePixels(const Image& image, double quality) {
  if (image.width() > WEBP_MAX_DIMENSION || image.height() > WEBP_MAX_DIMENSION) {
    return encodingFailure(fmt::format("{}x{} is too large, the most is {} pixels a side", image.width(),
                                       image.height(), WEBP_MAX_DIMENSION));
  }
  WebPConfig config;
  WebPPicture picture;
  if (WebPConfigInit(&config) == 0 || WebPPictureInit(&picture) == 0) return encodingFailure("another libwebp");
  config.quality = static_cast<float>(quality * 100);
  config.lossless = quality >= 1 ? 1 : 0;
  config.exact = config.lossless;
  config.use_sharp_yuv = 1;
  picture.use_argb = 1;
  picture.width = static_cast<int>(image.width());
  picture.height = static_cast<int>(image.height());
  const std::unique_ptr<WebPPicture, void (*)(WebPPicture*)> pictureOwner(&picture, WebPPictureFree);
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  const std::unique_ptr<WebPMemoryWriter, void (*)(WebPMemoryWriter*)> writerOwner(&writer, WebPMemoryWriterClear);
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = &writer;
  const Bitmap pixels = straightRGBA(image);
  const auto import = isOpaqueThroughout(image) ? WebPPictureImportRGBX : WebPPictureImportRGBA;
  if (import(&picture, pixels.pixels.data(), pixels.bytesPerRow()) == 0 || WebPEncode(&config, &picture) == 0)
    return encodingFailure(fmt::format("libwebp's error {}", static_cast<int>(picture.error_code)));
  return Data(writer.mem, writer.mem + writer.size);
}

}  // namespace

Expected<Data> encodeWebp(const Image& image, const ImageEncoding& encoding) {
  auto bytes = encodePixels(image, encoding.quality);
  const ImageMetadata metadata = metadataFor(image, encoding);
  if (!bytes || (metadata.exif.empty() && metadata.xmp.empty() && metadata.colorProfile.empty())) return bytes;
  const WebPData picture = {bytes->data(), bytes->size()};
  const std::unique_ptr<WebPMux, MuxDeleter> mux(WebPMuxCreate(&picture, 0));
  const auto add = [&](const char* name, const Data& data) {
    const WebPData chunk = {data.data(), data.size()};
    return data.empty() || WebPMuxSetChunk(mux.get(), name, &chunk, 0) == WEBP_MUX_OK;
  };
  WebPData assembled{};
  const bool isDone = mux && add("ICCP", metadata.colorProfile) && add("EXIF", metadata.exif) &&
                      add("XMP ", metadata.xmp) && WebPMuxAssemble(mux.get(), &assembled) == WEBP_MUX_OK;
  if (!isDone) return encodingFailure("its metadata cannot be stored");
  Data result(assembled.bytes, assembled.bytes + assembled.size);
  WebPDataClear(&assembled);
  return result;
}

}  // namespace tavrel
