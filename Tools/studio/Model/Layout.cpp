#include "Model/Layout.h"

#include <algorithm>
#include <cmath>

namespace tavrel::studio {

Layout Layout::of(Size window, Size frame, double line, bool showsPanels) {
  constexpr double kSideLines = 22;
  constexpr double kLargestShare = 0.45;
  constexpr double kBarLines = 6.4;
  const double side = showsPanels ? std::round(std::min(kSideLines * line, window.width * kLargestShare)) : 0;
  const double bar = showsPanels ? std::round(std::min(kBarLines * line, window.height / 2)) : 0;
  Layout layout;
  layout.side = {{0, 0}, {side, window.height}};
  layout.bar = {{side, window.height - bar}, {window.width - side, bar}};
  layout.room = {{side, 0}, {std::max(1.0, window.width - side), std::max(1.0, window.height - bar)}};
  const Rect exact = rectWithAspectRatioInsideRect(frame, layout.room);
  layout.picture.origin = {std::round(exact.origin.x), std::round(exact.origin.y)};
  layout.picture.size = {std::max(1.0, std::round(exact.size.width)), std::max(1.0, std::round(exact.size.height))};
  return layout;
}

Point Layout::toFrame(Point point, Size frameSize, bool mirrored) const {
  const double x = (point.x - picture.origin.x) / picture.size.width;
  const double y = (point.y - picture.origin.y) / picture.size.height;
  return {(mirrored ? 1 - x : x) * frameSize.width, y * frameSize.height};
}

Point Layout::toWindow(Point point, Size frameSize, bool mirrored) const {
  const double x = point.x / frameSize.width;
  const double y = point.y / frameSize.height;
  return {picture.origin.x + (mirrored ? 1 - x : x) * picture.size.width, picture.origin.y + y * picture.size.height};
}

}  // namespace tavrel::studio
