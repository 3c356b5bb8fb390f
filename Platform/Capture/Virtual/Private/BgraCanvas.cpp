#include "Platform/Capture/Virtual/Private/BgraCanvas.h"

#include <libyuv.h>

#include <algorithm>
#include <bit>

namespace tavrel {

void fillRect(const BgraCanvas& canvas, PixelRect rect, BgraColor color) {
  const int left = std::max(rect.x, 0);
  const int top = std::max(rect.y, 0);
  const int right = std::min(rect.x + rect.width, canvas.width);
  const int bottom = std::min(rect.y + rect.height, canvas.height);
  if (left >= right || top >= bottom) return;
  libyuv::ARGBRect(canvas.bytes, static_cast<int>(canvas.bytesPerRow), left, top, right - left, bottom - top,
                   std::bit_cast<std::uint32_t>(color));
}

void copyPicture(const BgraCanvas& source, const BgraCanvas& destination) {
  libyuv::ARGBCopy(source.bytes, static_cast<int>(source.bytesPerRow), destination.bytes,
                   static_cast<int>(destination.bytesPerRow), source.width, source.height);
}

double meanBrightnessOfMiddle(const BgraCanvas& canvas, PixelRect rect) {
  const int left = rect.x + rect.width / 4;
  const int top = rect.y + rect.height / 4;
  const int right = rect.x + rect.width - rect.width / 4;
  const int bottom = rect.y + rect.height - rect.height / 4;
  if (left >= right || top >= bottom) return 0;
  double sum = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const std::uint8_t* pixel = canvas.pixel(x, y);
      sum += 0.114 * pixel[0] + 0.587 * pixel[1] + 0.299 * pixel[2];
    }
  }
  return sum / (static_cast<double>(right - left) * (bottom - top));
}

}  // namespace tavrel
