#pragma once

#include <array>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"

namespace tavrel {

using SceneRgb = std::array<double, 3>;

/// Colours of the drawn portrait; of the wall those at the top left, and what is added to the right and to the bottom.
struct PortraitColors {
  SceneRgb wall, rightwards, downwards;
  SceneRgb hair, iris, cloth;
};

/// Fills the canvas with a person in front of a wall: skin with freckles, blemishes and pores, eyes, brows and hair,
/// and on the wall a poster with text and ever thinner lines. Sizes are shares of the canvas's shorter side.
void drawPortrait(const BgraCanvas& canvas, const PortraitColors& colors);

}  // namespace tavrel
