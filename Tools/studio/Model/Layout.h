#pragma once

#include "Platform/Foundation/Geometry.h"

namespace tavrel::studio {

/// How the window is divided, in pixels.
struct Layout {
  Rect side;     ///< the tabs; empty while the panels are folded away
  Rect bar;      ///< buttons and the line of messages; likewise
  Rect room;     ///< what is left for the picture
  Rect picture;  ///< all of it, in the camera's proportions

  /// `line` is the height of a line of text.
  static Layout of(Size window, Size frame, double line, bool showsPanels);

  /// A place in the window as a place on a frame of `frameSize`, and back.
  Point toFrame(Point point, Size frameSize, bool mirrored) const;
  Point toWindow(Point point, Size frameSize, bool mirrored) const;
};

}  // namespace tavrel::studio
