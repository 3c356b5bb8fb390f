// How the driver carries out a camera's controls.
#include <cerrno>
#include <cmath>
#include <system_error>

#include "Platform/Capture/V4L2/Private/V4L2Driver.h"
#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {

bool V4L2Driver::setControl(std::uint32_t identity, int value) {
  v4l2_control control{identity, value};
  return node_->control(VIDIOC_S_CTRL, &control);
}

void V4L2Driver::apply(CaptureControl control, const CaptureControls& controls) {
  const std::lock_guard lock(mutex_);
  if (!node_) return;
  bool done = true;
  switch (control) {
    case CaptureControl::torch:
      if (!capabilities_.flashLed.exists) return;
      done = setControl(V4L2_CID_FLASH_LED_MODE, controls.torchMode == CaptureTorchMode::on ? V4L2_FLASH_LED_MODE_TORCH
                                                                                            : V4L2_FLASH_LED_MODE_NONE);
      break;
    case CaptureControl::focus:
      if (capabilities_.focusAuto.exists) {
        done = setControl(V4L2_CID_FOCUS_AUTO, controls.focusMode == CaptureFocusMode::continuousAutoFocus ? 1 : 0);
      }
      if (controls.focusMode == CaptureFocusMode::autoFocus && capabilities_.focusStart.exists) {
        done = setControl(V4L2_CID_AUTO_FOCUS_START, 1) && done;
      }
      break;
    case CaptureControl::exposure: {
      const bool isAutomatic = controls.exposureMode != CaptureExposureMode::locked;
      if (isAutomatic ? capabilities_.automaticExposure < 0 : !capabilities_.hasManualExposure) return;
      // Locked is as it is now, not as it was when somebody set it last.
      v4l2_control exposure{V4L2_CID_EXPOSURE_ABSOLUTE, 0};
      const bool isKept =
          !isAutomatic && capabilities_.exposureAbsolute.exists && node_->control(VIDIOC_G_CTRL, &exposure);
      done = setControl(V4L2_CID_EXPOSURE_AUTO,
                        isAutomatic ? capabilities_.automaticExposure : static_cast<int>(V4L2_EXPOSURE_MANUAL));
      if (isKept) done = setControl(V4L2_CID_EXPOSURE_ABSOLUTE, exposure.value) && done;
      break;
    }
    case CaptureControl::zoom: {
      const V4L2ControlRange& zoom = capabilities_.zoom;
      if (!zoom.exists || zoom.maximum <= zoom.minimum) return;
      const double place = (controls.zoomFactor - 1) / (capabilities_.largestZoom() - 1);
      done = setControl(V4L2_CID_ZOOM_ABSOLUTE,
                        zoom.minimum + static_cast<int>(std::lround(place * (zoom.maximum - zoom.minimum))));
      break;
    }
  }
  if (!done) {
    ConsoleLog::write("{} refuses a setting: {}", description_.localizedName, std::system_category().message(errno));
  }
}

}  // namespace tavrel
