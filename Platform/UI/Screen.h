#pragma once

#include <mutex>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// The main display: SDL's first display once the user interface has started; before that, or without one, a nominal
/// display of scale 1 and 60 frames per second. Any thread.
class TAVREL_API Screen {
 public:
  static Screen& main();

  /// Pixels per point.
  double scale() const;
  /// For tests and for rendering images of another density without a display.
  void setScale(double scale);
  /// In points; zero without a display.
  Size size() const;
  double framesPerSecond() const;
  /// Also sets the rate of display links added afterwards.
  void setMode(Size size, double framesPerSecond);

 private:
  Screen() = default;

  mutable std::mutex mutex_;
  double scale_ = 1;
  Size size_;
  double framesPerSecond_ = 60;
};

}  // namespace tavrel
