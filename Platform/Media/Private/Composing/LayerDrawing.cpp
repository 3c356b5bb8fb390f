#include "Platform/Media/Private/Composing/LayerDrawing.h"

#include <libyuv/planar_functions.h>
#include <pixman.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/PixelScaling.h"

namespace tavrel {
namespace {

struct ImageDeleter {
  void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using DrawnImage = std::unique_ptr<pixman_image_t, ImageDeleter>;

/// Pixels or a mask that others own, without a copy.
DrawnImage imageOf(pixman_format_code_t format, int width, int height, const void* bytes, int bytesPerRow) {
  auto* const words = static_cast<std::uint32_t*>(const_cast<void*>(bytes));
  return DrawnImage(pixman_image_create_bits_no_clear(format, width, height, words, bytesPerRow));
}

struct Bitmap {
  Bitmap(Data& pixels, int pixelsAcross, int pixelsDown)
      : bytesPerRow(pixelsAcross * 4), width(pixelsAcross), height(pixelsDown) {
    pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    bytes = pixels.data();
  }
  explicit Bitmap(PixelBuffer& buffer)
      : bytes(buffer.baseAddress()),
        bytesPerRow(static_cast<int>(buffer.bytesPerRow())),
        width(static_cast<int>(buffer.width())),
        height(static_cast<int>(buffer.height())) {}

  DrawnImage image(pixman_format_code_t format) const { return imageOf(format, width, height, bytes, bytesPerRow); }
  PixelRows rows() const { return {bytes, static_cast<std::size_t>(bytesPerRow), width, height}; }
  bool isOpaque() const {
    for (int y = 0; y < height; ++y) {
      const std::uint8_t* const row = bytes + static_cast<std::ptrdiff_t>(y) * bytesPerRow;
      std::uint8_t least = 255;
      for (int x = 0; x < width; ++x) least = std::min(least, row[x * 4 + 3]);
      if (least < 255) return false;
    }
    return true;
  }

  std::uint8_t* bytes = nullptr;
  int bytesPerRow;
  int width;
  int height;
};

/// Pixels of the target: the right and lower ends are outside.
struct Box {
  int left, top, right, bottom;
};

/// Where the centres of the target's pixels can lie in the layer.
Box boxOf(const Bitmap& target, const Bitmap& layer, const AffineTransform& transform) {
  Point low{1e9, 1e9};
  Point high{-1e9, -1e9};
  for (const Point corner : {Point{0, 0}, Point{double(layer.width), 0}, Point{0, double(layer.height)},
                             Point{double(layer.width), double(layer.height)}}) {
    const Point at = transform.apply(corner);
    low = {std::min(low.x, at.x), std::min(low.y, at.y)};
    high = {std::max(high.x, at.x), std::max(high.y, at.y)};
  }
  const auto firstCentre = [](double edge, int side) {
    return static_cast<int>(std::clamp(std::ceil(edge - 0.5), 0.0, double(side)));
  };
  return {firstCentre(low.x, target.width), firstCentre(low.y, target.height), firstCentre(high.x, target.width),
          firstCentre(high.y, target.height)};
}

/// From pixels of the box to those of the layer; nothing when the layer is too small to be seen.
std::optional<pixman_transform_t> samplingTransform(const AffineTransform& transform, const Box& box) {
  constexpr double kLargest = 32767;  // of pixman's 16.16 numbers
  const double determinant = transform.a * transform.d - transform.b * transform.c;
  const double x = box.left - transform.tx;
  const double y = box.top - transform.ty;
  const double xx = transform.d / determinant;
  const double xy = -transform.c / determinant;
  const double yx = -transform.b / determinant;
  const double yy = transform.a / determinant;
  const pixman_f_transform_t sampling = {{{xx, xy, xx * x + xy * y}, {yx, yy, yx * x + yy * y}, {0, 0, 1}}};
  for (const auto& row : sampling.m) {
    for (const double element : row) {
      if (!(std::abs(element) < kLargest)) return std::nullopt;
    }
  }
  pixman_transform_t fixed;
  pixman_transform_from_pixman_f_transform(&fixed, &sampling);
  return fixed;
}

/// Makes a layer that is drawn much smaller one of that size, whose pixels are means: samplers leave out pixels. What
/// is left of its transform.
AffineTransform reduce(Bitmap& layer, Data& pixels, const AffineTransform& transform) {
  constexpr double kLeastReduction = 1.5;
  const auto drawn = [](int length, double scale) {
    return scale * kLeastReduction >= 1 ? length : std::max(1, static_cast<int>(std::lround(length * scale)));
  };
  const int width = drawn(layer.width, std::hypot(transform.a, transform.b));
  const int height = drawn(layer.height, std::hypot(transform.c, transform.d));
  if (width == layer.width && height == layer.height) return transform;
  const AffineTransform enlargement =
      AffineTransform::makeScale(double(layer.width) / width, double(layer.height) / height);
  const Bitmap reduced(pixels, width, height);
  scalePixels(layer.rows(), reduced.rows());
  layer = reduced;
  return enlargement.concatenating(transform);
}

}  // namespace

void fillWithColor(PixelBuffer& target, const VideoCompositionInstruction::Color& color) {
  const auto byte = [](double level) {
    return static_cast<std::uint32_t>(std::lround(std::clamp(level, 0.0, 1.0) * 255));
  };
  const Bitmap bitmap(target);
  const std::uint32_t pixel =
      byte(color.alpha) << 24 | byte(color.red) << 16 | byte(color.green) << 8 | byte(color.blue);
  pixman_fill(static_cast<std::uint32_t*>(static_cast<void*>(bitmap.bytes)), bitmap.bytesPerRow / 4, 32, 0, 0,
              bitmap.width, bitmap.height, pixel);
}

void drawLayer(PixelBuffer& target, PixelBuffer& layer, const AffineTransform& transform, double opacity) {
  const auto level = static_cast<std::uint8_t>(std::ceil(std::clamp(opacity, 0.0, 1.0) * 255 - 0.5));
  const Bitmap to(target);
  Bitmap from(layer);
  const Box box = boxOf(to, from, transform);
  if (level == 0 || box.left >= box.right || box.top >= box.bottom || !samplingTransform(transform, box)) return;

  const bool isOpaque = from.isOpaque();
  Data premultiplied, reduced;
  if (!isOpaque) {
    const Bitmap copy(premultiplied, from.width, from.height);
    libyuv::ARGBAttenuate(from.bytes, from.bytesPerRow, copy.bytes, copy.bytesPerRow, from.width, from.height);
    from = copy;
  }
  const AffineTransform placed = reduce(from, reduced, transform);
  const auto sampling = samplingTransform(placed, box);
  if (!sampling) return;
  const DrawnImage source = from.image(isOpaque ? PIXMAN_x8r8g8b8 : PIXMAN_a8r8g8b8);
  pixman_image_set_transform(source.get(), &*sampling);
  pixman_image_set_filter(source.get(), PIXMAN_FILTER_BILINEAR, nullptr, 0);
  pixman_image_set_repeat(source.get(), PIXMAN_REPEAT_PAD);

  // A layer that stays upright fills its box. One that does not is cut by a mask that is turned with it; all rows of
  // the mask are the same one.
  const bool fillsBox = (transform.b == 0 && transform.c == 0) || (transform.a == 0 && transform.d == 0);
  const Data row(static_cast<std::size_t>(from.width + 3), level);
  const DrawnImage mask =
      fillsBox ? imageOf(PIXMAN_a8, 1, 1, row.data(), 4) : imageOf(PIXMAN_a8, from.width, from.height, row.data(), 0);
  pixman_image_set_repeat(mask.get(), fillsBox ? PIXMAN_REPEAT_NORMAL : PIXMAN_REPEAT_NONE);
  if (!fillsBox) pixman_image_set_transform(mask.get(), &*sampling);

  const DrawnImage drawn = to.image(PIXMAN_a8r8g8b8);
  pixman_image_composite32(PIXMAN_OP_OVER, source.get(), fillsBox && level == 255 ? nullptr : mask.get(), drawn.get(),
                           0, 0, 0, 0, box.left, box.top, box.right - box.left, box.bottom - box.top);
}

}  // namespace tavrel
