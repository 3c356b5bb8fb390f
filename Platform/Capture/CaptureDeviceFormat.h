#pragma once

#include <vector>

#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// A range of frame rates, in frames per second. A discrete rate is a range whose ends are equal.
struct CaptureFrameRateRange {
  double minFrameRate = 0;
  double maxFrameRate = 0;

  /// 1 / maxFrameRate.
  MediaTime minFrameDuration() const { return durationOf(maxFrameRate); }
  /// 1 / minFrameRate.
  MediaTime maxFrameDuration() const { return durationOf(minFrameRate); }
  friend bool operator==(const CaptureFrameRateRange&, const CaptureFrameRateRange&) = default;

 private:
  static MediaTime durationOf(double rate) {
    const auto whole = static_cast<std::int32_t>(rate);
    return whole > 0 && whole == rate ? MediaTime::make(1, whole) : MediaTime::fromSeconds(1 / rate, 100'000'000);
  }
};

/// Size of the sensor's picture in pixels, before rotation.
struct CaptureVideoDimensions {
  int width = 0;
  int height = 0;
  friend bool operator==(const CaptureVideoDimensions&, const CaptureVideoDimensions&) = default;
};

/// A format a device can run in. Immutable once a device offers it, and compared by address.
struct CaptureDeviceFormat {
  MediaType mediaType = MediaType::video;
  CaptureVideoDimensions dimensions;                                 ///< cameras only
  std::vector<CaptureFrameRateRange> videoSupportedFrameRateRanges;  ///< cameras only; slowest range first
  double videoMaxZoomFactor = 1;                                     ///< cameras only; 1 without zoom
  AudioFormat audioFormat;                                           ///< microphones only
};

}  // namespace tavrel
