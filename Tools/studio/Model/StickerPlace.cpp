#include "Model/StickerPlace.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tavrel::studio {
namespace {

constexpr double kSmallestSide = 8;  // pixels; smaller ones cannot be taken hold of

Point turned(Point point, double radians) {
  const double c = std::cos(radians);
  const double s = std::sin(radians);
  return {c * point.x - s * point.y, s * point.x + c * point.y};
}

Point minus(Point left, Point right) { return {left.x - right.x, left.y - right.y}; }

Rect aroundCentre(Point centre, Size size) { return {{centre.x - size.width / 2, centre.y - size.height / 2}, size}; }

}  // namespace

Point StickerPlace::pointAt(double across, double down) const {
  const Point offset = turned({across * rectangle.size.width / 2, down * rectangle.size.height / 2}, radians);
  return {centre().x + offset.x, centre().y + offset.y};
}

StickerGrip gripAt(const StickerPlace& place, Point point, double reach) {
  // In the sticker's own directions.
  const Point local = turned(minus(point, place.centre()), -place.radians);
  const double halfWidth = place.rectangle.size.width / 2;
  const double halfHeight = place.rectangle.size.height / 2;
  if (std::hypot(local.x, local.y + halfHeight + kTurningHandle * reach) <= reach) return StickerGrip::handle;
  const double fromCorner = std::max(std::abs(std::abs(local.x) - halfWidth), std::abs(std::abs(local.y) - halfHeight));
  if (fromCorner <= reach) return StickerGrip::corner;
  if (std::abs(local.x) <= halfWidth && std::abs(local.y) <= halfHeight) return StickerGrip::body;
  return StickerGrip::none;
}

StickerPlace dragged(const StickerPlace& start, StickerGrip grip, Point from, Point to, bool snaps) {
  StickerPlace place = start;
  const Point centre = start.centre();
  const Point before = minus(from, centre);
  const Point after = minus(to, centre);
  switch (grip) {
    case StickerGrip::body: {
      const Point way = minus(to, from);
      place.rectangle.origin = {start.rectangle.origin.x + way.x, start.rectangle.origin.y + way.y};
      break;
    }
    case StickerGrip::corner: {
      const double shorter = std::min(start.rectangle.size.width, start.rectangle.size.height);
      const double length = std::hypot(before.x, before.y);
      if (length == 0 || shorter <= 0) break;
      const double factor = std::max(std::hypot(after.x, after.y) / length, kSmallestSide / shorter);
      place.rectangle =
          aroundCentre(centre, {start.rectangle.size.width * factor, start.rectangle.size.height * factor});
      break;
    }
    case StickerGrip::handle: {
      constexpr double kStep = std::numbers::pi / 12;
      const double angle = start.radians + std::atan2(after.y, after.x) - std::atan2(before.y, before.x);
      place.radians = std::remainder(snaps ? std::round(angle / kStep) * kStep : angle, 2 * std::numbers::pi);
      break;
    }
    case StickerGrip::none: break;
  }
  return place;
}

StickerPlace rescaled(const StickerPlace& place, Size from, Size to) {
  if (from == to || !(from.width > 0 && from.height > 0)) return place;
  const double across = to.width / from.width;
  const double down = to.height / from.height;
  const double factor = std::min(across, down);
  const Size size = {place.rectangle.size.width * factor, place.rectangle.size.height * factor};
  return {aroundCentre({place.centre().x * across, place.centre().y * down}, size), place.radians};
}

StickerPlace placeForDrop(Size pictureSize, Size frameSize, Point centre) {
  const double factor = std::min({1.0, frameSize.width / 3 / std::max(1.0, pictureSize.width),
                                  frameSize.height / 3 / std::max(1.0, pictureSize.height)});
  const Size size = {std::max(kSmallestSide, std::round(pictureSize.width * factor)),
                     std::max(kSmallestSide, std::round(pictureSize.height * factor))};
  Rect rectangle = aroundCentre(centre, size);
  rectangle.origin = {std::round(rectangle.origin.x), std::round(rectangle.origin.y)};
  return {rectangle, 0};
}

}  // namespace tavrel::studio
