#pragma once

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// Maps an animation's time (x) to progress (y) by a cubic Bézier curve from (0, 0) to (1, 1).
class TAVREL_API TimingFunction {
 public:
  static constexpr TimingFunction linear() { return {{0, 0}, {1, 1}}; }
  static constexpr TimingFunction easeIn() { return {{0.42, 0}, {1, 1}}; }
  static constexpr TimingFunction easeOut() { return {{0, 0}, {0.58, 1}}; }
  static constexpr TimingFunction easeInEaseOut() { return {{0.42, 0}, {0.58, 1}}; }

  /// The two inner control points; their x must lie in 0…1. With points that are not finite it is linear.
  constexpr TimingFunction(Point first, Point second) : first_(first), second_(second) {}

  /// Progress at `time`, which is clamped to 0…1; exact to about 1e-6.
  double progressAt(double time) const;

 private:
  Point first_;
  Point second_;
};

}  // namespace tavrel
