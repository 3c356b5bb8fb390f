#pragma once

#include "Platform/Foundation/Finite.h"

namespace tavrel {

/// A colour with components in 0…1, not multiplied by alpha.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  friend bool operator==(const Color&, const Color&) = default;

  static constexpr Color clear() { return {0, 0, 0, 0}; }
  static constexpr Color black() { return {0, 0, 0, 1}; }
  static constexpr Color white() { return {1, 1, 1, 1}; }
};

inline bool isFinite(const Color& color) {
  return isFinite(color.red) && isFinite(color.green) && isFinite(color.blue) && isFinite(color.alpha);
}

}  // namespace tavrel
