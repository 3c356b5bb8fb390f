#include "Platform/Capture/V4L2/Private/V4L2Controls.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {
namespace {

/// Side of the region around a point of interest, in parts of the largest one.
constexpr double kRegionPart = 0.2;

}  // namespace

bool V4L2Controls::set(const V4L2Descriptor& node, std::uint32_t identity, int value) const {
  v4l2_control control{identity, value};
  return node.control(VIDIOC_S_CTRL, &control);
}

void V4L2Controls::apply(const V4L2Descriptor& node, CaptureControl control, const CaptureControls& controls,
                         const std::string& name) {
  bool done = true;
  switch (control) {
    case CaptureControl::torch:
      if (!capabilities_.flashLed.exists) return;
      done = set(node, V4L2_CID_FLASH_LED_MODE,
                 controls.torchMode == CaptureTorchMode::on ? V4L2_FLASH_LED_MODE_TORCH : V4L2_FLASH_LED_MODE_NONE);
      break;
    case CaptureControl::focus: done = setFocus(node, controls); break;
    case CaptureControl::exposure: done = setExposure(node, controls); break;
    case CaptureControl::zoom: done = setZoom(node, controls.zoomFactor); break;
  }
  if (!done) ConsoleLog::write("{} refuses a setting: {}", name, std::system_category().message(errno));
}

bool V4L2Controls::setFocus(const V4L2Descriptor& node, const CaptureControls& controls) {
  const bool isNewPoint = std::exchange(focusPoint_, controls.focusPoint) != controls.focusPoint;
  const bool isContinuous = controls.focusMode == CaptureFocusMode::continuousAutoFocus;
  const bool hasRegion = (capabilities_.regionUses & kV4L2RegionForFocus) != 0;
  bool done = !isNewPoint || !hasRegion || setRegion(node, controls.focusPoint, kV4L2RegionForFocus);
  if (capabilities_.focusAuto.exists) {
    // Off and on again, it looks for the focus anew.
    if (isNewPoint && isContinuous) done = set(node, V4L2_CID_FOCUS_AUTO, 0) && done;
    done = set(node, V4L2_CID_FOCUS_AUTO, isContinuous ? 1 : 0) && done;
  }
  if (controls.focusMode == CaptureFocusMode::autoFocus && capabilities_.focusStart.exists) {
    done = set(node, V4L2_CID_AUTO_FOCUS_START, 1) && done;
  }
  return done;
}

bool V4L2Controls::setExposure(const V4L2Descriptor& node, const CaptureControls& controls) {
  const bool isNewPoint = std::exchange(exposurePoint_, controls.exposurePoint) != controls.exposurePoint;
  const bool hasRegion = (capabilities_.regionUses & kV4L2RegionForExposure) != 0;
  bool done = !isNewPoint || !hasRegion || setRegion(node, controls.exposurePoint, kV4L2RegionForExposure);
  const bool isAutomatic = controls.exposureMode != CaptureExposureMode::locked;
  if (isAutomatic ? capabilities_.automaticExposure < 0 : !capabilities_.hasManualExposure) return done;
  // Locked is as it is now, not as it was when somebody set it last.
  v4l2_control exposure{V4L2_CID_EXPOSURE_ABSOLUTE, 0};
  const bool isKept = !isAutomatic && capabilities_.exposureAbsolute.exists && node.control(VIDIOC_G_CTRL, &exposure);
  done = set(node, V4L2_CID_EXPOSURE_AUTO,
             isAutomatic ? capabilities_.automaticExposure : static_cast<int>(V4L2_EXPOSURE_MANUAL)) &&
         done;
  return (!isKept || set(node, V4L2_CID_EXPOSURE_ABSOLUTE, exposure.value)) && done;
}

bool V4L2Controls::setZoom(const V4L2Descriptor& node, double factor) const {
  const V4L2ControlRange& zoom = capabilities_.zoom;
  if (!zoom.exists || zoom.maximum <= zoom.minimum) return true;
  const double place = std::clamp((factor - 1) / (capabilities_.largestZoom() - 1), 0.0, 1.0);
  return set(node, V4L2_CID_ZOOM_ABSOLUTE,
             zoom.minimum + static_cast<int>(std::lround(place * (zoom.maximum - zoom.minimum))));
}

bool V4L2Controls::setRegion(const V4L2Descriptor& node, Point middle, int use) {
  const v4l2_rect& whole = *capabilities_.largestRegion;
  const auto begin = [](double point, std::uint32_t length) {
    return static_cast<std::int32_t>(std::clamp(point - kRegionPart / 2, 0.0, 1 - kRegionPart) * length);
  };
  const auto part = [](std::uint32_t length) { return static_cast<std::uint32_t>(kRegionPart * length); };
  v4l2_rect region = {whole.left + begin(middle.x, whole.width), whole.top + begin(middle.y, whole.height),
                      part(whole.width), part(whole.height)};
  regionUses_ |= use;
  return exchangeV4L2Region(node, VIDIOC_S_EXT_CTRLS, V4L2_CTRL_WHICH_CUR_VAL, region) &&
         set(node, kV4L2RegionUsesControl, regionUses_);
}

std::unique_ptr<CaptureControlPort> V4L2ControlPort::open(const std::string& path, V4L2SystemCalls calls) {
  auto port = std::make_unique<V4L2ControlPort>(path, std::move(calls));
  return port->capabilities_.card.empty() ? nullptr : std::move(port);
}

V4L2ControlPort::V4L2ControlPort(const std::string& path, V4L2SystemCalls calls)
    : calls_(std::move(calls)), node_(calls_, calls_.open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  if (!node_.isOpen()) return;
  if (auto found = probeV4L2(node_)) capabilities_ = std::move(*found);
}

void V4L2ControlPort::apply(CaptureControl control, const CaptureControls& controls) {
  const std::lock_guard lock(mutex_);
  controls_.apply(node_, control, controls, capabilities_.card);
}

}  // namespace tavrel
