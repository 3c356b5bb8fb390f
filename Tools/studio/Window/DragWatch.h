#pragma once

#include <SDL.h>

#include <optional>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// Knows where things are that are dragged here from other programs. One at a time, after SDL has begun. Main thread.
class DragWatch {
 public:
  DragWatch();
  DragWatch(const DragWatch&) = delete;
  DragWatch& operator=(const DragWatch&) = delete;
  ~DragWatch();

  /// On the screen, in points: where the last thing was held, or where the mouse is if the desktop does not say.
  Point place() const;

 private:
  std::optional<Point> told_;
};

}  // namespace tavrel::studio
