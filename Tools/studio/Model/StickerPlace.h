#pragma once

#include "Platform/Foundation/Geometry.h"

namespace tavrel::studio {

/// Where a sticker lies on the picture: in pixels from the top left, turned clockwise about its centre.
struct StickerPlace {
  Rect rectangle;
  double radians = 0;
  bool operator==(const StickerPlace&) const = default;

  Point centre() const { return {rectangle.midX(), rectangle.midY()}; }
  /// A point of the sticker, in -1…1 of its half sides, as it lies on the picture.
  Point pointAt(double across, double down) const;
};

/// What a mouse takes hold of.
enum class StickerGrip { none, body, corner, handle };

/// Distance from the sticker's upper edge to the handle by which it is turned, in `reach`es.
constexpr double kTurningHandle = 3;

/// What lies under `point`; corners and handle are as wide as `reach` to each side.
StickerGrip gripAt(const StickerPlace& place, Point point, double reach);

/// The place after the mouse went from `from` to `to`, holding the sticker that was at `start`: a body moves, a corner
/// sizes about the centre and keeps the proportions, the handle turns. `snaps` turns by steps of 15 degrees.
StickerPlace dragged(const StickerPlace& start, StickerGrip grip, Point from, Point to, bool snaps);

/// The same place on a picture of another size.
StickerPlace rescaled(const StickerPlace& place, Size from, Size to);

/// Where a picture of `pictureSize` pixels lies that was dropped at `centre`: its own size, at most a third of the
/// frame.
StickerPlace placeForDrop(Size pictureSize, Size frameSize, Point centre);

}  // namespace tavrel::studio
