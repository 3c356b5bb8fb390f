#pragma once

#include <vector>

#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// Frame rates between two ends, in frames a second. A device with single rates has ranges whose ends are equal.
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

/// Pixels of the sensor's picture, before it is turned.
struct CaptureVideoDimensions {
  int width = 0;
  int height = 0;
  friend bool operator==(const CaptureVideoDimensions&, const CaptureVideoDimensions&) = default;
};

/// One way in which a device can run. Immutable once a device offers it, and compared by its address.
struct CaptureDeviceFormat {
  MediaType mediaType = MediaType::video;
  /// Cameras: the picture's size.
  CaptureVideoDimensions dimensions;
  /// Cameras: slowest range first.
  std::vector<CaptureFrameRateRange> videoSupportedFrameRateRanges;
  /// Cameras: 1 where there is no zoom.
  double videoMaxZoomFactor = 1;
  /// Microphones: the sound that comes out.
  AudioFormat audioFormat;
};

}  // namespace tavrel
