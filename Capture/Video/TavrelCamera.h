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

namespace tavrel {

class CaptureSession;
class Image;
class TavrelGPUImageFramebuffer;
class TavrelGPUImageView;
struct SampleTiming;

/// What became of the frames that the device has produced since the camera was made.
struct TavrelCameraStatistics {
  /// Frames the device produced: the sum of those below.
  std::uint64_t delivered = 0;
  /// Frames that went through the chain.
  std::uint64_t processed = 0;
  /// Frames dropped by the device's output because the capture queue was busy.
  std::uint64_t late = 0;
  /// Frames dropped because the one before was still in the chain.
  std::uint64_t busy = 0;
  /// Frames dropped because the camera was being switched or the chain rebuilt.
  std::uint64_t whileSwitching = 0;
  /// Frames dropped before the start, after the stop or in the background.
  std::uint64_t whileNotRunning = 0;

  std::uint64_t dropped() const { return delivered - processed; }
};

class TavrelCamera;

/// Receives what a camera makes.
class TAVREL_API TavrelCameraDelegate {
 public:
  virtual ~TavrelCameraDelegate() = default;

  /// A frame that left the chain, on the video-processing queue. The framebuffer is the delegate's for the time of the
  /// call; `lock` it to keep it longer. The presentation time is the wall clock at the frame's arrival, in seconds
  /// since 1970 (timescale 100 000 000), and invalid for the picture of a snapshot, which comes here too.
  virtual void didGetProcessedFramebuffer(TavrelCamera& /*camera*/,
                                          const std::shared_ptr<TavrelGPUImageFramebuffer>& /*framebuffer*/,
                                          const SampleTiming& /*sampleTimingInfo*/) {}
  /// Somebody tapped on the preview, at this point of the device (see `setPreferredFocusPointOfInterest`); before the
  /// actions are carried out. Main thread.
  virtual void didTakeTapActionAtPoint(TavrelCamera& /*camera*/, Point /*point*/, unsigned /*action*/) {}
};

/// A camera: it captures from the front or the back device, runs each frame through crop, effects and mirror on the
/// GPU, shows it in `previewView` and hands it to its delegate.
///
///     device ▶ external filters ▶ crop ▶ effects ▶ (blur) ┬▶ (mirror) ▶ previewView
///                                                         └▶ (mirror) ▶ delegate
///
///     created ──startWithCompletion──▶ running ──stop──▶ stopped ──startWithCompletion──▶ …
///
/// Frames that arrive while the chain is rebuilt, while the camera is switched or while the application is in the
/// background are dropped. A property called `preferred…` keeps the caller's wish even when the device cannot fulfil it
/// now; wishes are applied again at every start and switch. What cannot be set is logged (tag "TavrelCamera"), never
/// thrown.
///
/// Members may be called from any thread, those of the preview and of taps on the main one, which must run
/// `RunLoop::main()`. Setters that rebuild the chain wait for the video-processing queue; do not call them from it.
class TAVREL_API TavrelCamera : public TavrelSampleBufferDelegateProxyDelegate,
                                public std::enable_shared_from_this<TavrelCamera> {
 public:
  using CaptureEffects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;
  using StartCompletion = std::function<void(bool isGranted)>;
  /// The picture and no error, or no picture and the error.
  using SnapshotCompletion = std::function<void(std::shared_ptr<Image> image, std::optional<Error> error)>;

  /// Fails with code -4002 when the session refuses an output. A missing camera is no failure: a session without input
  /// runs without frames.
  static Expected<std::shared_ptr<TavrelCamera>> create(const TavrelCameraConfiguration& configuration);
  TavrelCamera(const TavrelCamera&) = delete;
  TavrelCamera& operator=(const TavrelCamera&) = delete;
  /// Stops.
  ~TavrelCamera() override;

  /// Asks for access and starts. `completion` (may be empty) is called on the global queue; false when access was
  /// refused. While running: called at once with true.
  void startWithCompletion(StartCompletion completion);
  /// Returns when nothing more is captured.
  void stop();
  /// From the request to start until the stop, or until access is refused.
  bool running() const;

  std::shared_ptr<TavrelCameraDelegate> delegate() const;
  void setDelegate(std::weak_ptr<TavrelCameraDelegate> delegate);
  const std::shared_ptr<TavrelGPUImageView>& previewView() const;

  /// The subject of the notifications about what becomes of the device.
  const std::shared_ptr<CaptureSession>& session() const;

  /// Front when back is in use, back otherwise.
  void switchCamera();
  CaptureDevicePosition devicePosition() const;
  CaptureDevicePosition preferredDevicePosition() const;
  /// Switches, with a blur over the last frame until 0.3 s after the last switch when `blurSwitch`. When there is no
  /// such camera the other one is used. `unspecified` only keeps the wish.
  void setPreferredDevicePosition(CaptureDevicePosition position);
  bool blurSwitch() const;
  void setBlurSwitch(bool blurSwitch);

  std::string sessionPreset() const;
  std::string preferredSessionPreset() const;
  void setPreferredSessionPreset(const std::string& preset);
  /// Of the data output; `landscapeRight` without a camera.
  CaptureVideoOrientation videoOrientation() const;
  CaptureVideoOrientation preferredVideoOrientation() const;
  void setPreferredVideoOrientation(CaptureVideoOrientation orientation);

  /// Of the frames that come out. The crop follows with the next frame of another size.
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
  /// Whether the branch is mirrored with the camera in use.
  bool mirrorPreview() const;
  bool mirrorEncoded() const;

  /// In the order in which they are applied. The camera keeps a list of its own of the same objects: a change of an
  /// effect's property shows from the next frame on. A change of one may read the others, so all effects of a camera
  /// belong to one thread at a time.
  CaptureEffects captureEffects() const;
  void setCaptureEffects(CaptureEffects captureEffects);

  /// A still picture through the same chain. `completion` is called once: on the global queue, or on the still-image
  /// output's when the capture fails.
  void snapshotWithCompletion(SnapshotCompletion completion);

  TavrelCameraStatistics statistics() const;

  // The device in use. Getters without one answer what a device has at first; setters keep the wish.
  std::vector<CaptureFrameRateRange> videoSupportedFrameRateRanges() const;
  /// Infinite without a camera.
  double minFrameRate() const;
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
  /// Does nothing while continuous auto exposure is in that state already.
  void setPreferredContinuousAutoFocusEnable(bool isEnabled);
  bool continuousAutoExposureEnable() const;
  bool preferredContinuousAutoExposureEnable() const;
  void setPreferredContinuousAutoExposureEnable(bool isEnabled);
  /// (0, 0) the top left, (1, 1) the bottom right of the sensor's picture in landscape.
  Point focusPointOfInterest() const;
  Point preferredFocusPointOfInterest() const;
  void setPreferredFocusPointOfInterest(Point point);
  Point exposurePointOfInterest() const;
  Point preferredExposurePointOfInterest() const;
  void setPreferredExposurePointOfInterest(Point point);

  /// Bits of `TavrelCameraTapPreviewAction`; 0: taps on the preview do nothing. Main thread.
  unsigned tapPreviewAction() const;
  void setTapPreviewAction(unsigned tapPreviewAction);
  /// A point of the preview, in 0…1 of its width and height, as a point of the device.
  Point covertPreviewPointToFocusPoint(Point previewPoint) const;

  /// Ends the observation of the application's state. For who wants to keep a camera that goes on in the background.
  void removeObservers();

  void didOutputSampleBuffer(TavrelSampleBufferDelegateProxy& proxy, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  struct Implementation;

  explicit TavrelCamera(const TavrelCameraConfiguration& configuration);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
