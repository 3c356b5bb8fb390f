#pragma once

namespace tavrel {

/// Which way a camera looks.
enum class CaptureDevicePosition {
  unspecified = 0,
  back = 1,  ///< away from who uses the device
  front = 2  ///< towards who uses it
};

/// The lamp while frames are captured. `automatic` leaves it to the device.
enum class CaptureTorchMode { off = 0, on = 1, automatic = 2 };

/// The lamp while a still picture is taken.
enum class CaptureFlashMode { off = 0, on = 1, automatic = 2 };

/// `locked` keeps the lens where it stands, `autoFocus` focuses once and then keeps it, `continuousAutoFocus` follows
/// the scene.
enum class CaptureFocusMode { locked = 0, autoFocus = 1, continuousAutoFocus = 2 };

/// The same for the exposure.
enum class CaptureExposureMode { locked = 0, autoExpose = 1, continuousAutoExposure = 2 };

/// Whether the process may use the devices of a media type.
enum class CaptureAuthorizationStatus {
  notDetermined = 0,  ///< nobody has asked yet
  restricted = 1,     ///< this system does not let anybody decide
  denied = 2,
  authorized = 3
};

/// How the picture of a camera is turned on its way to an output: so that it stands upright when the device is held
/// like this. `landscapeRight` is the sensor's picture as it is; `portrait` turns it a quarter clockwise,
/// `portraitUpsideDown` a quarter counter-clockwise, `landscapeLeft` by half a turn.
enum class CaptureVideoOrientation { portrait = 1, portraitUpsideDown = 2, landscapeRight = 3, landscapeLeft = 4 };

}  // namespace tavrel
