#pragma once

#include <mutex>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// What pictures are seen on: the display that SDL calls the first one once a window was asked for, an imaginary one of
/// scale 1 and 60 pictures a second before and without. Any thread.
class TAVREL_API Screen {
 public:
  static Screen& main();

  /// Pixels for each point.
  double scale() const;
  /// For tests and for composing pictures of another density without a display.
  void setScale(double scale);
  /// In points; empty without a display.
  Size size() const;
  double framesPerSecond() const;
  /// Display links that are added afterwards follow the rate.
  void setMode(Size size, double framesPerSecond);

 private:
  Screen() = default;

  mutable std::mutex mutex_;
  double scale_ = 1;
  Size size_;
  double framesPerSecond_ = 60;
};

}  // namespace tavrel
