#include "Platform/Graphics/PixelFormat.h"

#include "Platform/Graphics/Private/GraphicsFailure.h"

namespace tavrel {
namespace {

constexpr std::size_t kAlignment = 64;

constexpr std::size_t roundedUp(std::size_t value) { return (value + kAlignment - 1) / kAlignment * kAlignment; }

void addPlane(PixelLayout& layout, PixelPlane plane) {
  plane.offset = layout.byteCount;
  layout.planes[layout.planeCount++] = plane;
  layout.byteCount += roundedUp(plane.bytesPerRow * plane.height);
}

}  // namespace

Expected<PixelLayout> PixelLayout::create(std::size_t width, std::size_t height, PixelFormat format) {
  if (width == 0 || height == 0 || width > kMaximumSide || height > kMaximumSide) {
    return graphicsFailure(GraphicsStatus::invalidSize,
                           "a pixel buffer of {}x{} is not possible: sides are 1 to {} pixels", width, height,
                           kMaximumSide);
  }
  PixelLayout layout;
  layout.width = width;
  layout.height = height;
  layout.format = format;
  switch (format) {
    case PixelFormat::bgra32:
      addPlane(layout, {.width = width, .height = height, .bytesPerSample = 4, .bytesPerRow = width * 4});
      return layout;
    case PixelFormat::biPlanar420VideoRange:
    case PixelFormat::biPlanar420FullRange:
    case PixelFormat::biPlanar420VideoRange10: {
      const std::size_t bytes = format == PixelFormat::biPlanar420VideoRange10 ? 2 : 1;
      for (const std::size_t part : {1, 2}) {
        const std::size_t across = (width + part - 1) / part;
        const std::size_t sample = bytes * part;  // Cb and Cr
        addPlane(layout, {.width = across,
                          .height = (height + part - 1) / part,
                          .bytesPerSample = sample,
                          .bytesPerRow = roundedUp(across * sample)});
      }
      return layout;
    }
  }
  return graphicsFailure(GraphicsStatus::invalidPixelFormat,
                         "0x{:08x} is not a pixel format of pixel buffers: those are 'BGRA', '420v', '420f' and 'x420'",
                         static_cast<std::uint32_t>(format));
}

}  // namespace tavrel
