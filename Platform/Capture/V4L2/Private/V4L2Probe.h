#pragma once

#include <linux/videodev2.h>

#include <memory>
#include <string>
#include <vector>

#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/FrameConversion.h"
#include "Platform/Capture/V4L2/Private/V4L2SystemCalls.h"

namespace tavrel {

/// An open node; closed with this.
class V4L2Descriptor {
 public:
  V4L2Descriptor(const V4L2SystemCalls& calls, int descriptor) : calls_(calls), descriptor_(descriptor) {}
  V4L2Descriptor(const V4L2Descriptor&) = delete;
  V4L2Descriptor& operator=(const V4L2Descriptor&) = delete;
  ~V4L2Descriptor() {
    if (descriptor_ >= 0) calls_.close(descriptor_);
  }

  int get() const { return descriptor_; }
  bool isOpen() const { return descriptor_ >= 0; }
  /// False with `errno`.
  bool control(unsigned long request, void* argument) const {
    return calls_.ioctl(descriptor_, request, argument) >= 0;
  }

 private:
  const V4L2SystemCalls& calls_;
  const int descriptor_;
};

/// One pixel format at one size, with its rates.
struct V4L2Mode {
  std::uint32_t pixelFormat = 0;
  FrameLayout layout = FrameLayout::yuyv;
  CaptureVideoDimensions dimensions;
  std::vector<CaptureFrameRateRange> rates;
};

/// A control that the driver has.
struct V4L2ControlRange {
  bool exists = false;
  int minimum = 0;
  int maximum = 0;
  int current = 0;
};

/// What a node can do.
struct V4L2Capabilities {
  std::string card;
  std::string bus;
  std::vector<V4L2Mode> modes;
  V4L2ControlRange focusAuto;
  V4L2ControlRange focusStart;
  V4L2ControlRange focusAbsolute;
  V4L2ControlRange exposureAuto;
  V4L2ControlRange exposureAbsolute;
  V4L2ControlRange zoom;
  V4L2ControlRange flashLed;
  int automaticExposure = -1;  ///< the menu entry for it; -1: none
  bool hasManualExposure = false;
  CaptureDevicePosition position = CaptureDevicePosition::unspecified;
  int rotation = 0;

  CaptureCapabilities controls() const;
  double largestZoom() const;
  /// The mode of that size that reaches the rate at the least cost; of several the one with the fastest rate.
  const V4L2Mode* modeFor(CaptureVideoDimensions dimensions, double rate) const;
  const V4L2Mode* jpegModeFor(CaptureVideoDimensions dimensions) const;
};

/// Asks a node. Nothing when it is no camera that we can read.
std::optional<V4L2Capabilities> probeV4L2(const V4L2Descriptor& node);
/// "what: the system's reason". A case of `CaptureErrorCode` where there is one for it, else of the domain "posix".
Error v4l2Error(int code, const std::string& what);

}  // namespace tavrel
