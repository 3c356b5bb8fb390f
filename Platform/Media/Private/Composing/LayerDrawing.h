#pragma once

#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/VideoComposition.h"

namespace tavrel {

/// Fills a 'BGRA' buffer with one colour.
void fillWithColor(PixelBuffer& target, const VideoCompositionInstruction::Color& color);

/// Lays `layer` over `target`. `transform` goes from the layer's pixels to the target's; pixels are sampled at their
/// centres, linearly, and the layer's edge is cut there.
void drawLayer(PixelBuffer& target, PixelBuffer& layer, const AffineTransform& transform, double opacity);

}  // namespace tavrel
