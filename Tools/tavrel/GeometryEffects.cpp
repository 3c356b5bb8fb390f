#include "GeometryEffects.h"

#include <algorithm>
#include <cmath>

namespace tavrel::tool {
namespace {

/// A stretch of rows or columns.
struct Span {
  double first = 0;
  double last = 0;
  double length() const { return last - first; }
};

Rect rectOf(const Span& columns, const Span& rows) {
  return {{columns.first, rows.first}, {columns.length(), rows.length()}};
}
Span columnsOf(const Rect& rect) { return {rect.minX(), rect.maxX()}; }
Span rowsOf(const Rect& rect) { return {rect.minY(), rect.maxY()}; }

/// The crop in one direction, in whole pixels.
struct CroppedSide {
  CroppedSide(double frameLength, double start, double share)
      : length(std::max(1.0, std::round(frameLength * share))),
        origin(std::min(std::round(frameLength * start), frameLength - length)) {}

  Span inputFor(const Span& output) const { return {origin + output.first, origin + output.last}; }
  Span outputOf(const Span& input) const {
    return {std::max(0.0, input.first - origin), std::min(length, input.last - origin)};
  }
  /// Where the pixels `output` lie in `input`, as shares of it.
  Span sharesOf(const Span& output, const Span& input) const {
    return {(origin + output.first - input.first) / input.length(),
            (origin + output.last - input.first) / input.length()};
  }

  double length;
  double origin;
};

/// Gives exactly `size`, however the product of region and frame rounds.
class SizedCropFilter : public TavrelGPUImageCropFilter {
 public:
  SizedCropFilter(const Rect& region, Size size) : TavrelGPUImageCropFilter(region), size_(size) {}
  Size outputSizeFor(Size) const override { return size_; }

 private:
  Size size_;
};

/// A part of a crop, for pictures that are a part of the frame.
class PartOfCrop : public CropEffect {
 public:
  PartOfCrop(const Rect& region, Size size) : CropEffect(region), region_(region), size_(size) {}
  TavrelCaptureEffectNodes makeNodes(Size) override {
    return {.filters = {std::make_shared<SizedCropFilter>(region_, size_)}, .pictures = {}};
  }
  Size sizeAfter(Size) const override { return size_; }

 private:
  Rect region_;
  Size size_;
};

CroppedSide columns(const Rect& region, Size frame) { return {frame.width, region.origin.x, region.size.width}; }
CroppedSide rows(const Rect& region, Size frame) { return {frame.height, region.origin.y, region.size.height}; }

/// Where a turned frame's corner and sides lie in the frame as it comes, whose sides are 0…1.
struct Turn {
  explicit Turn(TavrelGPUImageRotationMode mode) {
    const GLfloat* const corners = TavrelGPUImageFilter::textureCoordinatesForRotation(mode);
    origin = {corners[0], corners[1]};
    right = {corners[2] - corners[0], corners[3] - corners[1]};
    down = {corners[4] - corners[0], corners[5] - corners[1]};
  }
  Point toInput(Point point) const {
    return {origin.x + point.x * right.x + point.y * down.x, origin.y + point.x * right.y + point.y * down.y};
  }
  Point toOutput(Point point) const {
    const Point from = {point.x - origin.x, point.y - origin.y};
    return {from.x * right.x + from.y * right.y, from.x * down.x + from.y * down.y};
  }

  Point origin;
  Point right;
  Point down;
};

/// `rect` of a frame of the size `from`, whose corners `move` takes to those of a frame of the size `to`.
template <typename Move>
Rect movedRect(const Rect& rect, Size from, Size to, const Move& move) {
  const auto corner = [&](double x, double y) {
    const Point moved = move(Point{x / from.width, y / from.height});
    return Point{std::round(moved.x * to.width), std::round(moved.y * to.height)};
  };
  const Point one = corner(rect.minX(), rect.minY());
  const Point other = corner(rect.maxX(), rect.maxY());
  return {{std::min(one.x, other.x), std::min(one.y, other.y)}, {std::abs(one.x - other.x), std::abs(one.y - other.y)}};
}

}  // namespace

Size CropEffect::sizeAfter(Size frame) const { return {columns(region_, frame).length, rows(region_, frame).length}; }

TavrelCaptureEffectNodes CropEffect::makeNodes(Size frame) {
  const CroppedSide across = columns(region_, frame);
  const CroppedSide down = rows(region_, frame);
  const Rect region =
      rectOf(across.sharesOf({0, across.length}, {0, frame.width}), down.sharesOf({0, down.length}, {0, frame.height}));
  return {.filters = {std::make_shared<SizedCropFilter>(region, sizeAfter(frame))}, .pictures = {}};
}

std::optional<Rect> CropEffect::inputFor(const Rect& output, Size frame) const {
  return rectOf(columns(region_, frame).inputFor(columnsOf(output)), rows(region_, frame).inputFor(rowsOf(output)));
}

TavrelCaptureEffectPart CropEffect::onPart(const Rect& input, Size frame) const {
  const CroppedSide across = columns(region_, frame);
  const CroppedSide down = rows(region_, frame);
  const Span outputColumns = across.outputOf(columnsOf(input));
  const Span outputRows = down.outputOf(rowsOf(input));
  const Rect output = rectOf(outputColumns, outputRows);
  const Rect region =
      rectOf(across.sharesOf(outputColumns, columnsOf(input)), down.sharesOf(outputRows, rowsOf(input)));
  return {std::make_shared<PartOfCrop>(region, output.size), output};
}

std::optional<Rect> TurnEffect::inputFor(const Rect& output, Size frameSize) const {
  const Turn turn(rotation_);
  return movedRect(output, sizeAfter(frameSize), frameSize, [&](Point point) { return turn.toInput(point); });
}

TavrelCaptureEffectPart TurnEffect::onPart(const Rect& input, Size frameSize) const {
  const Turn turn(rotation_);
  return {nullptr,
          movedRect(input, frameSize, sizeAfter(frameSize), [&](Point point) { return turn.toOutput(point); })};
}

TavrelCaptureEffectNodes BlurEffect::makeNodes(Size) {
  auto filter = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  filter->setSigma(radius_);
  filter->setWorksInLight(TavrelGPUImageContext::scaling().worksInLight);
  return {.filters = {std::move(filter)}, .pictures = {}};
}

std::optional<Rect> BlurEffect::inputFor(const Rect& output, Size frameSize) const {
  const int reduction = TavrelGPUImageSmoothBlurFilter::reductionFor(radius_);
  Rect input = grown(output, std::ceil(radius_ * 4) + 2 * reduction, frameSize);
  // Parts are reduced as the whole is when they begin on its steps.
  const auto before = [&](double place) { return std::floor(place / reduction) * reduction; };
  const Point corner = {before(input.minX()), before(input.minY())};
  input.size = {input.maxX() - corner.x, input.maxY() - corner.y};
  input.origin = corner;
  return input;
}

}  // namespace tavrel::tool
