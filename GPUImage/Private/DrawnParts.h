#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// A part of a frame in which the same areas lie, in pixels.
struct DrawnPart {
  std::uint32_t areas = 0;  ///< bit i for area i
  int left = 0, bottom = 0, right = 0, top = 0;

  friend bool operator==(const DrawnPart&, const DrawnPart&) = default;
};

/// Splits a frame of `width` x `height` pixels along the edges of `areas` into as few rectangles as rows of them allow,
/// which touch and do not overlap. An absent area is the whole frame. The parts of equal areas follow one another.
std::vector<DrawnPart> drawnParts(int width, int height, std::span<const std::optional<Rect>> areas);

}  // namespace tavrel
