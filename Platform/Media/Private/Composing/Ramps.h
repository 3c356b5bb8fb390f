#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/Media/VideoComposition.h"

namespace tavrel {

template <typename Value>
void addRamp(std::vector<Ramp<Value>>& ramps, Ramp<Value> ramp) {
  const auto later =
      std::upper_bound(ramps.begin(), ramps.end(), ramp.timeRange.start,
                       [](const MediaTime& start, const auto& each) { return start < each.timeRange.start; });
  ramps.insert(later, std::move(ramp));
}

/// How far `time` has come through the range, from 0 to 1.
inline double fractionOf(const MediaTimeRange& range, MediaTime time) {
  const double duration = range.duration.seconds();
  if (!(duration > 0)) return 1;
  return std::clamp((time - range.start).seconds() / duration, 0.0, 1.0);
}

/// The ramp that counts at `time`: the last one that has begun, else the first. There is at least one.
template <typename Value>
const Ramp<Value>& rampAt(const std::vector<Ramp<Value>>& ramps, MediaTime time) {
  const auto later = std::upper_bound(ramps.begin(), ramps.end(), time,
                                      [](const MediaTime& at, const auto& each) { return at < each.timeRange.start; });
  return later == ramps.begin() ? *later : *std::prev(later);
}

/// A level's value at `time`.
inline double levelAt(const std::vector<Ramp<double>>& ramps, MediaTime time) {
  if (ramps.empty()) return 1;
  const Ramp<double>& ramp = rampAt(ramps, time);
  if (time < ramp.timeRange.start) return ramp.start;
  const double fraction = fractionOf(ramp.timeRange, time);
  return ramp.start + (ramp.end - ramp.start) * fraction;
}

}  // namespace tavrel
