#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Capture/Video/TavrelCameraConfiguration.h"
#include "Capture/Video/TavrelSampleBufferDelegateProxyDelegate.h"
#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

class CaptureSession;
class Image;
class TavrelGPUImageFramebuffer;
class TavrelGPUImageView;
struct SampleTiming;

/// What became of the device's frames since the camera was created.
struct TavrelCameraStatistics {
  std::uint64_t delivered = 0;        ///< by the device: the sum of those below
  std::uint64_t processed = 0;        ///< went through the chain
  std::uint64_t late = 0;             ///< dropped by the data output, mostly because the capture queue was busy
  std::uint64_t busy = 0;             ///< dropped because the previous one was still in the chain
  std::uint64_t whileSwitching = 0;   ///< dropped because the camera was being switched or the chain rebuilt
  std::uint64_t whileNotRunning = 0;  ///< dropped before the start, after the stop or in the background

  std::uint64_t dropped() const { return delivered - processed; }
};

class TavrelCamera;

/// Receives a camera's processed frames.
class TAVREL_API TavrelCameraDelegate {
 public:
  virtual ~TavrelCameraDelegate() = default;

  /// A processed frame, on the video-processing queue. `lock` the framebuffer to keep it after the call. The
  /// presentation time is `CaptureClock::current()` at the frame's arrival; it is invalid for a snapshot, which is
  /// delivered here too.
  virtual void didGetProcessedFramebuffer(TavrelCamera& /*camera*/,
                                          const std::shared_ptr<TavrelGPUImageFramebuffer>& /*framebuffer*/,
                                          const SampleTiming& /*sampleTimingInfo*/) {}
  /// The preview was tapped at `point` of the device (see `setPreferredFocusPointOfInterest`). Called before the
  /// actions are performed. Main thread.
  virtual void didTakeTapActionAtPoint(TavrelCamera& /*camera*/, Point /*point*/, unsigned /*action*/) {}
};

/// Captures from the front or back camera, processes each frame on the GPU (crop, effects, mirror), shows it in
/// `previewView` and passes it to the delegate.
///
///     device ▶ external filters ▶ crop ▶ effects ▶ (blur) ┬▶ (mirror) ▶ previewView
///                                                         └▶ (mirror) ▶ delegate
///
///     created ──startWithCompletion──▶ running ──stop──▶ stopped ──startWithCompletion──▶ …
///
/// Frames that arrive while the chain is rebuilt, the camera is switched or the application is in the background are
/// dropped. A `preferred…` property keeps its value even if the device does not support it, and is applied again at
/// every start and switch. Settings that fail are logged (tag "TavrelCamera").
///
/// Any thread, but members of the preview and of taps belong to the main thread, which must run `RunLoop::main()`.
/// Setters that rebuild the chain wait for the video-processing queue; do not call them on it.
class TAVREL_API TavrelCamera : public TavrelSampleBufferDelegateProxyDelegate,
                                public std::enable_shared_from_this<TavrelCamera> {
 public:
  using CaptureEffects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;
  using StartCompletion = std::function<void(bool isGranted)>;
  /// Receives either an image or an error.
  using SnapshotCompletion = std::function<void(std::shared_ptr<Image> image, std::optional<Error> error)>;

  /// Fails with code -4002 if the session refuses an output. Without a camera device the session runs but delivers no
  /// frames.
  static Expected<std::shared_ptr<TavrelCamera>> create(const TavrelCameraConfiguration& configuration);
  TavrelCamera(const TavrelCamera&) = delete;
  TavrelCamera& operator=(const TavrelCamera&) = delete;
  ~TavrelCamera() override;  ///< stops

  /// Requests access and starts capturing. `completion`, which may be empty, is called on the global queue, with false
  /// if access was refused; with true if already running.
  void startWithCompletion(StartCompletion completion);
  /// Returns when nothing more is captured or handed to the delegate. Allowed in callbacks and external filters.
  void stop();
  /// True from `startWithCompletion` until `stop` or until access is refused.
  bool running() const;

  std::shared_ptr<TavrelCameraDelegate> delegate() const;
  void setDelegate(std::weak_ptr<TavrelCameraDelegate> delegate);
  const std::shared_ptr<TavrelGPUImageView>& previewView() const;

  /// The object of the notifications about the device's failure and recovery.
  const std::shared_ptr<CaptureSession>& session() const;

  /// The `CaptureDevice::uniqueID` of the camera in use; empty without one.
  std::string deviceID() const;
  std::string preferredDeviceID() const;
  /// Switches to any camera, as `setPreferredDevicePosition` does. If it cannot be used, the one in use stays.
  void setPreferredDeviceID(const std::string& deviceID);
  /// Switches to the back camera if the front one is in use, else to the front one. Has no effect without both.
  void switchCamera();
  CaptureDevicePosition devicePosition() const;
  CaptureDevicePosition preferredDevicePosition() const;
  /// Switches the camera; if there is none at `position`, the other one is used. With `blurSwitch`, the last frame is
  /// shown blurred until 0.3 s after the last switch. `unspecified` is stored but does not switch.
  void setPreferredDevicePosition(CaptureDevicePosition position);
  bool blurSwitch() const;
  void setBlurSwitch(bool blurSwitch);

  std::string sessionPreset() const;
  std::string preferredSessionPreset() const;
  void setPreferredSessionPreset(const std::string& preset);
  /// The data output's; `landscapeRight` without a camera.
  CaptureVideoOrientation videoOrientation() const;
  CaptureVideoOrientation preferredVideoOrientation() const;
  void setPreferredVideoOrientation(CaptureVideoOrientation orientation);

  /// Size of the processed frames, in pixels. The crop follows with the next frame of another size.
  Size size() const;
  void setSize(Size size);
  TavrelGPUImageFillModeType previewScalingMode() const;
  void setPreviewScalingMode(TavrelGPUImageFillModeType mode);
  bool mirrorFrontPreview() const;
  void setMirrorFrontPreview(bool mirrors);
  bool mirrorBackPreview() const;
  void setMirrorBackPreview(bool mirrors);
  bool mirrorFrontEncoded() const;
  void setMirrorFrontEncoded(bool mirrors);
  bool mirrorBackEncoded() const;
  void setMirrorBackEncoded(bool mirrors);
  /// Whether that branch is mirrored for the camera in use.
  bool mirrorPreview() const;
  bool mirrorEncoded() const;

  /// In order of application. The camera shares the effect objects, so that a change of a property shows from the next
  /// frame on. All effects of a camera belong to one thread at a time, as a change of one may read the others.
  CaptureEffects captureEffects() const;
  /// Takes effect with the next frame if all GL programs of these effects are compiled. Otherwise frames pass the
  /// earlier effects until another thread has compiled them, which takes software GL up to a second for each; effects
  /// set meanwhile replace these. The start, and snapshots requested afterwards, wait for it. No frame waits if the
  /// driver keeps programs on disk (Mesa does in `XDG_CACHE_HOME`); otherwise, or with its cache turned off
  /// (`MESA_SHADER_CACHE_DISABLE`), they are compiled between two frames, the second of which waits.
  void setCaptureEffects(CaptureEffects captureEffects);
  /// Whether frames still pass earlier effects.
  bool isChangingEffects() const;

  /// Takes a still picture through the same chain. `completion` is called once, on the global queue, or on the
  /// still-image output's if capture fails.
  void snapshotWithCompletion(SnapshotCompletion completion);

  /// When the device captured the frame that the delegate gets with this presentation time, by the device's own stamp
  /// (see `CaptureDelivery::isStamped`); invalid for a frame of no device, such as a blurred one.
  MediaTime captureTime(MediaTime frameTime) const;

  TavrelCameraStatistics statistics() const;

  // The device in use. Without one, getters return a device's initial values; setters store theirs.
  std::vector<CaptureFrameRateRange> videoSupportedFrameRateRanges() const;
  double minFrameRate() const;  ///< infinite without a camera
  double maxFrameRate() const;
  double preferredMinFrameRate() const;
  void setPreferredMinFrameRate(double rate);
  double preferredMaxFrameRate() const;
  void setPreferredMaxFrameRate(double rate);
  CaptureTorchMode torchMode() const;
  CaptureTorchMode preferredTorchMode() const;
  void setPreferredTorchMode(CaptureTorchMode mode);
  CaptureFlashMode flashMode() const;
  CaptureFlashMode preferredFlashMode() const;
  void setPreferredFlashMode(CaptureFlashMode mode);
  double videoMaxZoomFactor() const;
  double videoZoomFactor() const;
  double preferredVideoZoomFactor() const;
  void setPreferredVideoZoomFactor(double factor);
  bool continuousAutoFocusEnable() const;
  bool preferredContinuousAutoFocusEnable() const;
  /// Has no effect if continuous auto *exposure* already has that state.
  void setPreferredContinuousAutoFocusEnable(bool isEnabled);
  bool continuousAutoExposureEnable() const;
  bool preferredContinuousAutoExposureEnable() const;
  void setPreferredContinuousAutoExposureEnable(bool isEnabled);
  /// (0, 0) is the top left of the sensor's picture in landscape, (1, 1) the bottom right.
  Point focusPointOfInterest() const;
  Point preferredFocusPointOfInterest() const;
  void setPreferredFocusPointOfInterest(Point point);
  Point exposurePointOfInterest() const;
  Point preferredExposurePointOfInterest() const;
  void setPreferredExposurePointOfInterest(Point point);

  /// Bits of `TavrelCameraTapPreviewAction`. Main thread.
  unsigned tapPreviewAction() const;
  void setTapPreviewAction(unsigned tapPreviewAction);
  /// Converts a point of the preview, in 0…1 of its width and height, to a point of the device.
  Point covertPreviewPointToFocusPoint(Point previewPoint) const;

  /// Stops observing the application's state: the camera keeps running in the background.
  void removeObservers();

  void didOutputSampleBuffer(TavrelSampleBufferDelegateProxy& proxy, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  struct Implementation;

  explicit TavrelCamera(const TavrelCameraConfiguration& configuration);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
