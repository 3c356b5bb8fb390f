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
    case PixelFormat::biPlanar420FullRange: {
      const std::size_t halfWidth = (width + 1) / 2;
      const std::size_t halfHeight = (height + 1) / 2;
      addPlane(layout, {.width = width, .height = height, .bytesPerSample = 1, .bytesPerRow = roundedUp(width)});
      addPlane(
          layout,
          {.width = halfWidth, .height = halfHeight, .bytesPerSample = 2, .bytesPerRow = roundedUp(halfWidth * 2)});
      return layout;
    }
  }
  return graphicsFailure(GraphicsStatus::invalidPixelFormat,
                         "0x{:08x} is not a pixel format of pixel buffers: those are 'BGRA', '420v' and '420f'",
                         static_cast<std::uint32_t>(format));
}

}  // namespace tavrel
