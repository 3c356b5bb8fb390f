#include <array>
#include <cmath>
#include <limits>

#include "Platform/Capture/Private/FrameRates.h"

namespace tavrel {
namespace {

constexpr std::array<int, 14> kCommonRates = {5, 10, 12, 15, 20, 24, 25, 30, 48, 50, 60, 90, 100, 120};
constexpr double kUsualRate = 30;

}  // namespace

MediaTime frameDurationOf(double rate) { return CaptureFrameRateRange{rate, rate}.minFrameDuration(); }

double frameRateOf(const MediaTime& duration) {
  const double exact = 1 / duration.seconds();
  double found = exact;
  double error = std::numeric_limits<double>::infinity();
  for (const int rate : kCommonRates) {
    const MediaTime rounded = MediaTime::fromSeconds(1.0 / rate, duration.timescale);
    if (rounded.value != duration.value || std::abs(rate - exact) >= error) continue;
    found = rate;
    error = std::abs(rate - exact);
  }
  return found;
}

double nearestFrameRate(const std::vector<CaptureFrameRateRange>& ranges, double rate) {
  double found = rate;
  double distance = std::numeric_limits<double>::infinity();
  for (const CaptureFrameRateRange& range : ranges) {
    const double inside = std::fmin(std::fmax(rate, range.minFrameRate), range.maxFrameRate);
    if (std::abs(inside - rate) >= distance) continue;
    found = inside;
    distance = std::abs(inside - rate);
  }
  return found;
}

MediaTime nearestFrameDuration(const std::vector<CaptureFrameRateRange>& ranges, const MediaTime& duration) {
  const double rate = 1 / duration.seconds();
  const double nearest = nearestFrameRate(ranges, rate);
  return nearest == rate ? duration : frameDurationOf(nearest);
}

MediaTime defaultFrameDuration(const std::vector<CaptureFrameRateRange>& ranges) {
  return frameDurationOf(nearestFrameRate(ranges, kUsualRate));
}

}  // namespace tavrel
