#include "Platform/Imaging/Private/PngEncoding.h"

#include <algorithm>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

/// How many rows are worked on before memory is let go of again.
constexpr std::size_t kRowsTogether = 64;

template <typename Handle>
bool forRows(const Image& image, const std::function<void()>& rest, const Handle& handle) {
  for (std::size_t y = 0; y < image.height(); y += kRowsTogether) {
    const std::size_t count = std::min(kRowsTogether, image.height() - y);
    if (!handle(*rowsOf(image, y, count), count)) return false;
    rest();
  }
  return true;
}

}  // namespace

ImageMetadata metadataFor(const Image& image, const ImageEncoding& encoding) {
  ImageMetadata metadata = encoding.metadata;
  if (!isProfileOfRGB(metadata.colorProfile)) metadata.colorProfile.clear();
  makeExifUpright(metadata.exif, image.width(), image.height(), metadata.colorProfile.empty());
  makeXmpUpright(metadata.xmp);
  return metadata;
}

std::optional<std::string> writePng(const Image& image, const ImageEncoding& encoding, PngRowWriter::Sink sink,
                                    const std::function<void()>& rest) {
  const ImageMetadata metadata = metadataFor(image, encoding);
  const bool deep = encoding.bitsPerComponent.value_or(isDeep(image) ? 16 : 8) > 8;
  const bool opaque = forRows(image, rest, [](const Image& rows, std::size_t) { return isOpaqueThroughout(rows); });
  PngRowWriter writer(std::move(sink));
  const auto writeRows = [&](const Image& rows, std::size_t count) {
    const Data pixels = deep ? straightRGBA16(rows) : straightRGBA(rows).pixels;
    for (std::size_t i = 0; i < count; ++i) {
      if (!writer.write(pixels.data() + i * pixels.size() / count)) return false;
    }
    return true;
  };
  const bool isWritten = writer.begin({.width = image.width(),
                                       .height = image.height(),
                                       .isDeep = deep,
                                       .isOpaque = opaque,
                                       .metadata = metadata}) &&
                         forRows(image, rest, writeRows) && writer.end();
  return isWritten ? std::nullopt : std::optional(writer.message());
}

}  // namespace tavrel
