#include "Platform/Media/Private/Composing/LayerDrawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace tavrel {
namespace {

/// Whether the transform only moves, by whole pixels.
bool isWholeMove(const AffineTransform& transform) {
  return transform.a == 1 && transform.b == 0 && transform.c == 0 && transform.d == 1 &&
         transform.tx == std::floor(transform.tx) && transform.ty == std::floor(transform.ty);
}

struct Bitmap {
  explicit Bitmap(PixelBuffer& buffer)
      : bytes(buffer.baseAddress()),
        bytesPerRow(buffer.bytesPerRow()),
        width(static_cast<int>(buffer.width())),
        height(static_cast<int>(buffer.height())) {}

  std::uint8_t* at(int x, int y) const {
    return bytes + static_cast<std::size_t>(y) * bytesPerRow + static_cast<std::size_t>(x) * 4;
  }

  std::uint8_t* bytes;
  std::size_t bytesPerRow;
  int width;
  int height;
};

/// `alpha` in 0…256 of a pixel over another; the result is opaque as far as either is.
void blend(std::uint8_t* target, const std::array<int, 4>& source, int opacity) {
  const int alpha = source[3] * opacity / 255;
  for (int i = 0; i < 3; ++i) {
    target[i] = static_cast<std::uint8_t>((source[i] * alpha + target[i] * (256 - alpha) + 128) >> 8);
  }
  target[3] = static_cast<std::uint8_t>(std::max<int>(target[3], std::min(255, alpha)));
}

/// The pixel around a place in pixels, the centre of the first one being 0.
std::array<int, 4> sample(const Bitmap& layer, double x, double y) {
  const int left = static_cast<int>(std::floor(x));
  const int top = static_cast<int>(std::floor(y));
  const int right = static_cast<int>(std::lround((x - left) * 256));
  const int below = static_cast<int>(std::lround((y - top) * 256));
  const int x0 = std::clamp(left, 0, layer.width - 1);
  const int x1 = std::clamp(left + 1, 0, layer.width - 1);
  const int y0 = std::clamp(top, 0, layer.height - 1);
  const int y1 = std::clamp(top + 1, 0, layer.height - 1);
  std::array<int, 4> pixel{};
  for (std::size_t i = 0; i < 4; ++i) {
    const int upper = layer.at(x0, y0)[i] * (256 - right) + layer.at(x1, y0)[i] * right;
    const int lower = layer.at(x0, y1)[i] * (256 - right) + layer.at(x1, y1)[i] * right;
    pixel[i] = (upper * (256 - below) + lower * below + 32768) >> 16;
  }
  return pixel;
}

void drawMoved(const Bitmap& target, const Bitmap& layer, int dx, int dy, int opacity) {
  const int left = std::max(0, dx);
  const int right = std::min(target.width, layer.width + dx);
  for (int y = std::max(0, dy); y < std::min(target.height, layer.height + dy) && left < right; ++y) {
    const std::uint8_t* source = layer.at(left - dx, y - dy);
    std::uint8_t* to = target.at(left, y);
    const bool isOpaque = opacity == 256 && [&] {
      for (int x = 0; x < right - left; ++x) {
        if (source[x * 4 + 3] != 255) return false;
      }
      return true;
    }();
    if (isOpaque) {
      std::memcpy(to, source, static_cast<std::size_t>(right - left) * 4);
      continue;
    }
    for (int x = left; x < right; ++x, source += 4, to += 4)
      blend(to, {source[0], source[1], source[2], source[3]}, opacity);
  }
}

void drawTransformed(const Bitmap& target, const Bitmap& layer, const AffineTransform& transform, int opacity) {
  const double determinant = transform.a * transform.d - transform.b * transform.c;
  if (std::abs(determinant) < 1e-9) return;
  const double ia = transform.d / determinant;
  const double ib = -transform.b / determinant;
  const double ic = -transform.c / determinant;
  const double id = transform.a / determinant;
  Point low{1e9, 1e9};
  Point high{-1e9, -1e9};
  for (const Point corner : {Point{0, 0}, Point{double(layer.width), 0}, Point{0, double(layer.height)},
                             Point{double(layer.width), double(layer.height)}}) {
    const Point at = transform.apply(corner);
    low = {std::min(low.x, at.x), std::min(low.y, at.y)};
    high = {std::max(high.x, at.x), std::max(high.y, at.y)};
  }
  const int left = static_cast<int>(std::clamp(std::floor(low.x), 0.0, double(target.width)));
  const int right = static_cast<int>(std::clamp(std::ceil(high.x), 0.0, double(target.width)));
  const int top = static_cast<int>(std::clamp(std::floor(low.y), 0.0, double(target.height)));
  const int bottom = static_cast<int>(std::clamp(std::ceil(high.y), 0.0, double(target.height)));
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const double px = x + 0.5 - transform.tx;
      const double py = y + 0.5 - transform.ty;
      const double u = px * ia + py * ic;
      const double v = px * ib + py * id;
      if (u < 0 || v < 0 || u >= layer.width || v >= layer.height) continue;
      blend(target.at(x, y), sample(layer, u - 0.5, v - 0.5), opacity);
    }
  }
}

}  // namespace

void fillWithColor(PixelBuffer& target, const VideoCompositionInstruction::Color& color) {
  const auto byte = [](double level) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 1.0) * 255));
  };
  const std::array<std::uint8_t, 4> pixel = {byte(color.blue), byte(color.green), byte(color.red), byte(color.alpha)};
  const Bitmap bitmap(target);
  for (int y = 0; y < bitmap.height; ++y) {
    for (int x = 0; x < bitmap.width; ++x) std::memcpy(bitmap.at(x, y), pixel.data(), pixel.size());
  }
}

void drawLayer(PixelBuffer& target, PixelBuffer& layer, const AffineTransform& transform, double opacity) {
  const int level = static_cast<int>(std::lround(std::clamp(opacity, 0.0, 1.0) * 256));
  if (level == 0) return;
  const Bitmap to(target);
  const Bitmap from(layer);
  // Further away there is nothing to be seen of it.
  if (std::abs(transform.tx) > 1e6 || std::abs(transform.ty) > 1e6) return;
  if (isWholeMove(transform)) {
    drawMoved(to, from, static_cast<int>(transform.tx), static_cast<int>(transform.ty), level);
  } else {
    drawTransformed(to, from, transform, level);
  }
}

}  // namespace tavrel
