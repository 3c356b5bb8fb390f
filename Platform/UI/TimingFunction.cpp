#include "Platform/UI/TimingFunction.h"

#include <algorithm>

#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

double bezier(double first, double second, double t) {
  const double u = 1 - t;
  return 3 * u * u * t * first + 3 * u * t * t * second + t * t * t;
}

}  // namespace

double TimingFunction::progressAt(double time) const {
  time = isFinite(time) ? std::clamp(time, 0.0, 1.0) : 0;
  if (!isFinite(first_) || !isFinite(second_)) return time;
  // x grows with the parameter, so halving finds it always, flat tangents included.
  double low = 0;
  double high = 1;
  for (int i = 0; i < 32; ++i) {
    const double middle = (low + high) / 2;
    (bezier(first_.x, second_.x, middle) < time ? low : high) = middle;
  }
  return bezier(first_.y, second_.y, (low + high) / 2);
}

}  // namespace tavrel
