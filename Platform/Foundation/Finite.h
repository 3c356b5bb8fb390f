#pragma once

#include <type_traits>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

// Whether every number in a value is finite, as setters demand: they ignore a value that is not. Values without
// floating-point numbers always are.

template <typename Value>
bool isFinite([[maybe_unused]] const Value& value) {
  // Infinity and NaN minus themselves are NaN. Unlike std::isfinite this needs no <cmath>, which is large.
  if constexpr (std::is_floating_point_v<Value>) return value - value == 0;
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
  for (const double element : value.m) {
    if (!isFinite(element)) return false;
  }
  return true;
}

}  // namespace tavrel
