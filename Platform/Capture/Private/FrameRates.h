#pragma once

#include <vector>

#include "Platform/Capture/CaptureDeviceFormat.h"

namespace tavrel {

/// The frame rate that people mean by `duration`: a common rate when that has this duration in its timescale, after
/// rounding (33/1000 is 30 a second), else 1 / duration.
double frameRateOf(const MediaTime& duration);
/// `rate`, or the nearest one in the ranges; `rate` itself when there are none.
double nearestFrameRate(const std::vector<CaptureFrameRateRange>& ranges, double rate);
/// `duration`, or the nearest one that the ranges allow.
MediaTime nearestFrameDuration(const std::vector<CaptureFrameRateRange>& ranges, const MediaTime& duration);
/// 30 frames a second, or the nearest.
MediaTime defaultFrameDuration(const std::vector<CaptureFrameRateRange>& ranges);
/// 1 / rate.
MediaTime frameDurationOf(double rate);

}  // namespace tavrel
