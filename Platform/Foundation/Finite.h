#pragma once

#include <algorithm>
#include <cmath>
#include <concepts>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

// Whether every number in a value is one that can be counted with, as setters demand: a value with another in it is
// refused, and the one before stays. What holds no real numbers is always fine.

template <typename Value>
bool isFinite([[maybe_unused]] const Value& value) {
  if constexpr (std::floating_point<Value>) return std::isfinite(value);
  return true;
}
inline bool isFinite(Point value) { return isFinite(value.x) && isFinite(value.y); }
inline bool isFinite(Size value) { return isFinite(value.width) && isFinite(value.height); }
inline bool isFinite(const Rect& value) { return isFinite(value.origin) && isFinite(value.size); }
inline bool isFinite(const AffineTransform& value) {
  return isFinite(value.a) && isFinite(value.b) && isFinite(value.c) && isFinite(value.d) && isFinite(value.tx) &&
         isFinite(value.ty);
}
inline bool isFinite(const Transform3D& value) {
  return std::all_of(value.m.begin(), value.m.end(), [](double element) { return isFinite(element); });
}

}  // namespace tavrel
