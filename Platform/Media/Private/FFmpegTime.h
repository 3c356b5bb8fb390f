#pragma once

#include <cstdint>
#include <numeric>

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/mathematics.h>
#include <libavutil/rational.h>
}

#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// `value` units of `base` as a time. Exact: where the base is no whole part of a second the value is multiplied out.
inline MediaTime mediaTimeFrom(std::int64_t value, AVRational base) {
  if (value == AV_NOPTS_VALUE || base.num <= 0 || base.den <= 0) return MediaTime::invalid();
  return MediaTime::make(value * base.num, base.den);
}

/// The nearest number of `base` units to a numeric time; AV_NOPTS_VALUE for any other.
inline std::int64_t unitsOf(const MediaTime& time, AVRational base) {
  if (!time.isNumeric()) return AV_NOPTS_VALUE;
  return av_rescale_q_rnd(time.value, AVRational{1, time.timescale}, base, AV_ROUND_NEAR_INF);
}

}  // namespace tavrel
