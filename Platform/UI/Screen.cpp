#include "Platform/UI/Screen.h"

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/DisplayLink.h"

namespace tavrel {

Screen& Screen::main() {
  static auto* screen = new Screen;
  return *screen;
}

double Screen::scale() const {
  const std::lock_guard lock(mutex_);
  return scale_;
}

void Screen::setScale(double scale) {
  const std::lock_guard lock(mutex_);
  if (isFinite(scale) && scale > 0) scale_ = scale;
}

Size Screen::size() const {
  const std::lock_guard lock(mutex_);
  return size_;
}

double Screen::framesPerSecond() const {
  const std::lock_guard lock(mutex_);
  return framesPerSecond_;
}

void Screen::setMode(Size size, double framesPerSecond) {
  const std::lock_guard lock(mutex_);
  if (isFinite(size)) size_ = size;
  if (!isFinite(framesPerSecond) || framesPerSecond <= 0) return;
  framesPerSecond_ = framesPerSecond;
  DisplayLink::setDisplayRate(framesPerSecond);
}

}  // namespace tavrel
