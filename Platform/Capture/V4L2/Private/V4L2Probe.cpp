#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/V4L2/Private/V4L2Formats.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"
#include "Platform/Capture/V4L2/Private/V4L2Signal.h"
#include "Platform/Foundation/JSONString.h"

namespace tavrel {
namespace {

constexpr std::size_t kMostEntries = 256;
/// A zoom control that starts at 0 does not say what its numbers mean; its end is taken for this factor.
constexpr double kZoomOfUnknownScale = 4;

double rateOf(const v4l2_fract& interval) {
  return interval.numerator > 0 ? static_cast<double>(interval.denominator) / interval.numerator : 0;
}

std::vector<CaptureFrameRateRange> ratesOf(const V4L2Descriptor& node, std::uint32_t pixelFormat,
                                           CaptureVideoDimensions dimensions) {
  std::vector<CaptureFrameRateRange> rates;
  for (std::uint32_t index = 0; index < kMostEntries; ++index) {
    v4l2_frmivalenum interval{};
    interval.index = index;
    interval.pixel_format = pixelFormat;
    interval.width = static_cast<std::uint32_t>(dimensions.width);
    interval.height = static_cast<std::uint32_t>(dimensions.height);
    if (!node.control(VIDIOC_ENUM_FRAMEINTERVALS, &interval)) break;
    if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
      const double slowest = rateOf(interval.stepwise.max);
      const double fastest = rateOf(interval.stepwise.min);
      if (fastest > 0) rates.push_back({std::min(slowest, fastest), fastest});
      break;
    }
    if (const double rate = rateOf(interval.discrete); rate > 0) rates.push_back({rate, rate});
  }
  if (v4l2_dv_timings timings{}; rates.empty() && node.control(VIDIOC_G_DV_TIMINGS, &timings)) {
    if (const double rate = rateOfTimings(timings); rate > 0) rates.push_back({rate, rate});
  }
  // A driver that does not say runs at a rate of its own.
  if (rates.empty()) rates.push_back({30, 30});
  std::sort(rates.begin(), rates.end(),
            [](const auto& left, const auto& right) { return left.minFrameRate < right.minFrameRate; });
  rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
  return rates;
}

std::vector<CaptureVideoDimensions> sizesOf(const V4L2Descriptor& node, std::uint32_t bufferType,
                                            std::uint32_t pixelFormat, std::optional<CaptureSizeRange>& range) {
  std::vector<CaptureVideoDimensions> sizes;
  const auto dimensions = [](std::uint32_t width, std::uint32_t height) {
    constexpr std::uint32_t kMost = 1U << 15;
    return CaptureVideoDimensions{static_cast<int>(std::min(width, kMost)), static_cast<int>(std::min(height, kMost))};
  };
  for (std::uint32_t index = 0; index < kMostEntries; ++index) {
    v4l2_frmsizeenum size{};
    size.index = index;
    size.pixel_format = pixelFormat;
    if (!node.control(VIDIOC_ENUM_FRAMESIZES, &size)) break;
    if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
      sizes.push_back(dimensions(size.discrete.width, size.discrete.height));
      continue;
    }
    const v4l2_frmsize_stepwise& steps = size.stepwise;
    range = sizeRangeOf(dimensions(steps.min_width, steps.min_height), dimensions(steps.max_width, steps.max_height),
                        dimensions(steps.step_width, steps.step_height));
    if (range) sizes = usualSizesIn(*range);
    break;
  }
  // Where the source chooses the size, there is only the present one.
  if (V4L2Format format; sizes.empty() && !range && exchangeFormat(node, VIDIOC_G_FMT, bufferType, format)) {
    const bool isPresent = format.pixelFormat == pixelFormat;
    format.pixelFormat = pixelFormat;
    if (isPresent || (exchangeFormat(node, VIDIOC_TRY_FMT, bufferType, format) && format.pixelFormat == pixelFormat)) {
      sizes.push_back(dimensions(format.width, format.height));
    }
  }
  return sizes;
}

void probeModes(const V4L2Descriptor& node, V4L2Capabilities& found) {
  for (std::uint32_t index = 0; index < kMostEntries; ++index) {
    v4l2_fmtdesc description{};
    description.index = index;
    description.type = found.bufferType;
    if (!node.control(VIDIOC_ENUM_FMT, &description)) break;
    const V4L2KnownFormat* known = knownV4L2Format(description.pixelformat);
    if (!known) {
      found.unreadable += (found.unreadable.empty() ? "" : ", ") + nameOfV4L2Format(description.pixelformat);
      continue;
    }
    std::optional<CaptureSizeRange> range;
    const auto add = [&](CaptureVideoDimensions size, const std::optional<CaptureSizeRange>& sizes) {
      if (size.width < 1 || size.height < 1) return;
      found.modes.push_back({known->pixelFormat, known->layout, size, ratesOf(node, known->pixelFormat, size), sizes});
    };
    for (const auto size : sizesOf(node, found.bufferType, known->pixelFormat, range)) add(size, std::nullopt);
    if (range) add(range->largest(), range);
  }
}

V4L2ControlRange rangeOf(const V4L2Descriptor& node, std::uint32_t identity) {
  v4l2_queryctrl query{};
  query.id = identity;
  if (!node.control(VIDIOC_QUERYCTRL, &query) || (query.flags & V4L2_CTRL_FLAG_DISABLED) != 0) return {};
  v4l2_control value{};
  value.id = identity;
  if (query.type != V4L2_CTRL_TYPE_BUTTON && !node.control(VIDIOC_G_CTRL, &value)) value.value = query.default_value;
  return {true, query.minimum, query.maximum, value.value};
}

/// The largest region of interest; nothing without such a control.
std::optional<v4l2_rect> largestRegionOf(const V4L2Descriptor& node) {
  constexpr std::uint32_t kGreatestValue = 0x0f030000;  // V4L2_CTRL_WHICH_MAX_VAL
  for (const std::uint32_t which : {kGreatestValue, static_cast<std::uint32_t>(V4L2_CTRL_WHICH_CUR_VAL)}) {
    v4l2_rect region{};
    const bool isRead = exchangeV4L2Region(node, VIDIOC_G_EXT_CTRLS, which, region);
    if (isRead && region.width > 0 && region.height > 0) return region;
  }
  return std::nullopt;
}

bool hasMenuEntry(const V4L2Descriptor& node, std::uint32_t identity, std::uint32_t entry) {
  v4l2_querymenu menu{};
  menu.id = identity;
  menu.index = entry;
  return node.control(VIDIOC_QUERYMENU, &menu);
}

void probeControls(const V4L2Descriptor& node, V4L2Capabilities& found) {
  found.focusAuto = rangeOf(node, V4L2_CID_FOCUS_AUTO);
  found.focusStart = rangeOf(node, V4L2_CID_AUTO_FOCUS_START);
  found.focusAbsolute = rangeOf(node, V4L2_CID_FOCUS_ABSOLUTE);
  found.exposureAuto = rangeOf(node, V4L2_CID_EXPOSURE_AUTO);
  found.exposureAbsolute = rangeOf(node, V4L2_CID_EXPOSURE_ABSOLUTE);
  found.zoom = rangeOf(node, V4L2_CID_ZOOM_ABSOLUTE);
  found.flashLed = rangeOf(node, V4L2_CID_FLASH_LED_MODE);
  if (found.exposureAuto.exists) {
    for (const auto entry : {V4L2_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY}) {
      if (found.automaticExposure < 0 && hasMenuEntry(node, V4L2_CID_EXPOSURE_AUTO, entry)) {
        found.automaticExposure = static_cast<int>(entry);
      }
    }
    found.hasManualExposure = hasMenuEntry(node, V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL);
  }
  if (found.flashLed.exists && !hasMenuEntry(node, V4L2_CID_FLASH_LED_MODE, V4L2_FLASH_LED_MODE_TORCH)) {
    found.flashLed.exists = false;
  }
  found.largestRegion = largestRegionOf(node);
  if (found.largestRegion) found.regionUses = rangeOf(node, kV4L2RegionUsesControl).maximum;
  const V4L2ControlRange orientation = rangeOf(node, V4L2_CID_CAMERA_ORIENTATION);
  if (orientation.exists && orientation.current == V4L2_CAMERA_ORIENTATION_FRONT) {
    found.position = CaptureDevicePosition::front;
  } else if (orientation.exists && orientation.current == V4L2_CAMERA_ORIENTATION_BACK) {
    found.position = CaptureDevicePosition::back;
  }
  const V4L2ControlRange rotation = rangeOf(node, V4L2_CID_CAMERA_SENSOR_ROTATION);
  if (rotation.exists) found.rotation = rotation.current;
}

}  // namespace

bool exchangeV4L2Region(const V4L2Descriptor& node, unsigned long request, std::uint32_t which, v4l2_rect& region) {
  v4l2_ext_control control{};
  control.id = kV4L2RegionControl;
  control.size = sizeof region;
  control.ptr = &region;
  v4l2_ext_controls list{};
  list.which = which;
  list.count = 1;
  list.controls = &control;
  return node.control(request, &list);
}

bool exchangeFormat(const V4L2Descriptor& node, unsigned long request, std::uint32_t bufferType, V4L2Format& format) {
  v4l2_format raw{};
  raw.type = bufferType;
  const auto ask = [&](auto& fields) {
    fields.width = format.width;
    fields.height = format.height;
    fields.pixelformat = format.pixelFormat;
    fields.field = V4L2_FIELD_NONE;
    if (!node.control(request, &raw)) return false;
    format.width = fields.width;
    format.height = fields.height;
    format.pixelFormat = fields.pixelformat;
    format.colorspace = fields.colorspace;
    format.encoding = fields.ycbcr_enc;
    format.quantization = fields.quantization;
    return true;
  };
  if (bufferType != V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE) {
    if (!ask(raw.fmt.pix)) return false;
    format.bytesPerRow = {raw.fmt.pix.bytesperline};
    return true;
  }
  if (!ask(raw.fmt.pix_mp)) return false;
  format.planeCount = std::clamp<std::size_t>(raw.fmt.pix_mp.num_planes, 1, format.bytesPerRow.size());
  for (std::size_t i = 0; i < format.planeCount; ++i) {
    format.bytesPerRow.at(i) = raw.fmt.pix_mp.plane_fmt[i].bytesperline;
  }
  return true;
}

Error v4l2Error(int code, const std::string& what) {
  const std::string text = fmt::format("{}: {}", what, std::system_category().message(code));
  switch (code) {
    case EACCES:
    case EPERM:
      return makeError(CaptureErrorCode::permissionDenied,
                       what + ": permission denied, join group video (usermod -aG video NAME) and log in again");
    case EBUSY: return makeError(CaptureErrorCode::busy, text);
    case ENODEV:
    case ENXIO: return makeError(CaptureErrorCode::unplugged, text);
    default: return {"posix", code, text};
  }
}

std::optional<V4L2Capabilities> probeV4L2(const V4L2Descriptor& node) {
  v4l2_capability capability{};
  if (!node.control(VIDIOC_QUERYCAP, &capability)) return std::nullopt;
  const std::uint32_t offered =
      (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps : capability.capabilities;
  constexpr std::uint32_t kCaptures = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE;
  if ((offered & kCaptures) == 0 || (offered & V4L2_CAP_STREAMING) == 0) return std::nullopt;
  const auto text = [](const std::uint8_t* bytes, std::size_t size) {
    const auto* characters = static_cast<const char*>(static_cast<const void*>(bytes));
    return plainText(std::string_view(characters, strnlen(characters, size)));
  };
  V4L2Capabilities found;
  found.card = text(capability.card, sizeof capability.card);
  found.bus = text(capability.bus_info, sizeof capability.bus_info);
  if ((offered & V4L2_CAP_VIDEO_CAPTURE) == 0) found.bufferType = V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
  probeModes(node, found);
  for (v4l2_input input{}; input.index < kMostEntries && node.control(VIDIOC_ENUMINPUT, &input);) {
    found.inputs.push_back(
        {input.index, text(input.name, sizeof input.name), (input.capabilities & V4L2_IN_CAP_DV_TIMINGS) != 0});
    const std::uint32_t next = input.index + 1;
    input = {};
    input.index = next;
  }
  probeControls(node, found);
  return found;
}

CaptureCapabilities V4L2Capabilities::controls() const {
  CaptureCapabilities result;
  result.torchModes = {flashLed.exists, flashLed.exists, false};
  result.flashModes = {flashLed.exists, flashLed.exists, false};
  result.focusModes = {focusAuto.exists || focusStart.exists, focusStart.exists, focusAuto.exists};
  result.exposureModes = {hasManualExposure, false, automaticExposure >= 0};
  // Without regions a new point has the camera focus anew, wherever that is.
  result.focusPoint = (regionUses & kV4L2RegionForFocus) != 0 || result.focusModes[1] || result.focusModes[2];
  result.zoom = largestZoom() > 1;
  result.exposurePoint = (regionUses & kV4L2RegionForExposure) != 0;
  return result;
}

double V4L2Capabilities::largestZoom() const {
  if (!zoom.exists || zoom.maximum <= zoom.minimum) return 1;
  return zoom.minimum > 0 ? static_cast<double>(zoom.maximum) / zoom.minimum : kZoomOfUnknownScale;
}

std::optional<V4L2Mode> V4L2Capabilities::jpegModeFor(CaptureVideoDimensions dimensions) const {
  for (V4L2Mode mode : modes) {
    if (mode.layout != FrameLayout::mjpeg || !hasSize(mode, dimensions)) continue;
    mode.dimensions = dimensions;
    return mode;
  }
  return std::nullopt;
}

std::optional<V4L2Mode> V4L2Capabilities::modeFor(CaptureVideoDimensions dimensions, double rate) const {
  std::optional<V4L2Mode> best;
  double bestRate = 0;
  for (const V4L2Mode& mode : modes) {
    if (!hasSize(mode, dimensions)) continue;
    const double reached = std::min(rate, mode.rates.back().maxFrameRate);
    const bool isFaster = reached > bestRate + 0.5;
    const bool isCheaper =
        best && reached > bestRate - 0.5 && costOfV4L2Format(mode.pixelFormat) < costOfV4L2Format(best->pixelFormat);
    if (best && !isFaster && !isCheaper) continue;
    best = mode;
    bestRate = reached;
  }
  if (best) best->dimensions = dimensions;
  return best;
}

}  // namespace tavrel
