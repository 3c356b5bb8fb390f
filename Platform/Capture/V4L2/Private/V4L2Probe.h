#pragma once

#include <linux/videodev2.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Capture/Private/CameraModes.h"
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

/// What a node says of the format of its pictures, whether it has a plane of memory or several for each.
struct V4L2Format {
  std::uint32_t pixelFormat = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::array<std::uint32_t, 3> bytesPerRow = {};  ///< of each plane with memory of its own
  std::size_t planeCount = 1;                     ///< with memory of their own
  std::uint32_t colorspace = 0;
  std::uint32_t encoding = 0;
  std::uint32_t quantization = 0;
};
/// VIDIOC_G_FMT, VIDIOC_TRY_FMT or VIDIOC_S_FMT. False with `errno`.
bool exchangeFormat(const V4L2Descriptor& node, unsigned long request, std::uint32_t bufferType, V4L2Format& format);

/// Where a node takes its pictures from.
struct V4L2Input {
  std::uint32_t index = 0;
  std::string name;
  bool hasTimings = false;  ///< a digital one, whose source chooses size and rate
};

/// One pixel format at one size, with its rates, or at those of a range, with the rates of the largest.
struct V4L2Mode {
  std::uint32_t pixelFormat = 0;
  FrameLayout layout = FrameLayout::yuyv;
  CaptureVideoDimensions dimensions;
  std::vector<CaptureFrameRateRange> rates;
  std::optional<CaptureSizeRange> sizes = {};  ///< where it has all of a range
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
  std::uint32_t bufferType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  std::vector<V4L2Mode> modes;
  std::string unreadable;         ///< names of the formats that we cannot read
  std::vector<V4L2Input> inputs;  ///< none where the driver knows of none
  V4L2ControlRange focusAuto;
  V4L2ControlRange focusStart;
  V4L2ControlRange focusAbsolute;
  V4L2ControlRange exposureAuto;
  V4L2ControlRange exposureAbsolute;
  V4L2ControlRange zoom;
  V4L2ControlRange flashLed;
  std::optional<v4l2_rect> largestRegion;  ///< of interest; nothing without such a control
  int regionUses = 0;                      ///< what the region may be used for, as the control's bits
  int automaticExposure = -1;              ///< the menu entry for it; -1: none
  bool hasManualExposure = false;
  CaptureDevicePosition position = CaptureDevicePosition::unspecified;
  int rotation = 0;

  CaptureCapabilities controls() const;
  double largestZoom() const;
  /// The mode of that size that reaches the rate at the least cost; of several the one with the fastest rate.
  std::optional<V4L2Mode> modeFor(CaptureVideoDimensions dimensions, double rate) const;
  std::optional<V4L2Mode> jpegModeFor(CaptureVideoDimensions dimensions) const;
};

/// Controls of cameras that focus and expose by a part of the picture; the kernel's headers have them since 6.16.
inline constexpr std::uint32_t kV4L2RegionControl = V4L2_CID_USER_BASE + 0x11e0 + 1;
inline constexpr std::uint32_t kV4L2RegionUsesControl = V4L2_CID_USER_BASE + 0x11e0 + 2;
inline constexpr int kV4L2RegionForExposure = 1 << 0;
inline constexpr int kV4L2RegionForFocus = 1 << 3;
/// Reads or writes (`request`) the region; `which` is its present value or another one. False with `errno`.
bool exchangeV4L2Region(const V4L2Descriptor& node, unsigned long request, std::uint32_t which, v4l2_rect& region);

/// Asks a node, and changes nothing. Nothing when it is no camera; without modes when it has none that we can read.
std::optional<V4L2Capabilities> probeV4L2(const V4L2Descriptor& node);
/// "what: the system's reason". A case of `CaptureErrorCode` where there is one for it, else of the domain "posix".
Error v4l2Error(int code, const std::string& what);

}  // namespace tavrel
