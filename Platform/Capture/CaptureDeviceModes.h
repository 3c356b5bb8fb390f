#pragma once

namespace tavrel {

/// Which way a camera looks.
enum class CaptureDevicePosition {
  unspecified = 0,
  back = 1,  ///< facing away from the user
  front = 2  ///< facing the user
};

/// The light while frames are captured. `automatic` leaves it to the device.
enum class CaptureTorchMode { off = 0, on = 1, automatic = 2 };

/// The light while a still picture is taken.
enum class CaptureFlashMode { off = 0, on = 1, automatic = 2 };

/// `locked` keeps the lens where it is, `autoFocus` focuses once and then locks, `continuousAutoFocus` follows the
/// scene.
enum class CaptureFocusMode { locked = 0, autoFocus = 1, continuousAutoFocus = 2 };

/// The same for exposure.
enum class CaptureExposureMode { locked = 0, autoExpose = 1, continuousAutoExposure = 2 };

/// Whether the process may use the devices of a media type.
enum class CaptureAuthorizationStatus {
  notDetermined = 0,  ///< access has not been requested yet
  restricted = 1,     ///< the user cannot grant access on this system
  denied = 2,
  authorized = 3
};

/// How a camera's frames are rotated to be upright when the device is held like this. `landscapeRight` leaves them as
/// captured; `portrait` rotates by 90° clockwise, `portraitUpsideDown` by 90° counter-clockwise, `landscapeLeft` by
/// 180°.
enum class CaptureVideoOrientation { portrait = 1, portraitUpsideDown = 2, landscapeRight = 3, landscapeLeft = 4 };

}  // namespace tavrel
