#pragma once

#include <type_traits>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

// Whether every number in a value is one that can be counted with, as setters demand: a value with another in it is
// refused, and the one before stays. What holds no real numbers is always fine.

template <typename Value>
bool isFinite([[maybe_unused]] const Value& value) {
  // Only infinity and what is no number differ from zero when taken from themselves.
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
