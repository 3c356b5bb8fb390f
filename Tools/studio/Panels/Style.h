#pragma once

#include <memory>

#include "Window/PanelRenderer.h"

namespace tavrel::studio {

/// Colours, sizes and the font of the panels, for a display of this scale. Returns the font's texture, which must live
/// as long as panels are drawn. With the window's context current, not between the beginning and end of a drawing.
std::unique_ptr<WindowTexture> applyStyle(double scale);

}  // namespace tavrel::studio
