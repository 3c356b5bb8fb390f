#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "Capture/Video/TavrelCameraConfiguration.h"
#include "Capture/Video/TavrelFocusView.h"
#include "Capture/Video/TavrelSampleBufferDelegateProxy.h"
#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"
#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"
#include "GPUImage/Sources/TavrelGPUImageCVPixelBufferInput.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/CaptureStillImageOutput.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Tracing/Tracer.h"
#include "Platform/UI/TapGestureRecognizer.h"

namespace tavrel {

/// What became of the frames since the camera was made.
struct TavrelCameraStatistics {
  std::uint64_t delivered = 0;        ///< came from the device, one way or the other: all below together
  std::uint64_t processed = 0;        ///< went into the chain
  std::uint64_t late = 0;             ///< the device's output dropped them: the capture queue was still busy
  std::uint64_t busy = 0;             ///< the frame before was still on its way through the chain
  std::uint64_t whileSwitching = 0;   ///< a switch or a rebuild of the chain was under way
  std::uint64_t whileNotRunning = 0;  ///< before the start, after the stop or in the background

  std::uint64_t dropped() const { return delivered - processed; }
};

class TavrelCamera;
class TavrelGPUImageGaussianBlurFilter;

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
  bool running() const { return running_; }

  std::shared_ptr<TavrelCameraDelegate> delegate() const;
  void setDelegate(std::weak_ptr<TavrelCameraDelegate> delegate);
  const std::shared_ptr<TavrelGPUImageView>& previewView() const { return previewView_; }

  /// Front when back is in use, back otherwise.
  void switchCamera();
  CaptureDevicePosition devicePosition() const;
  CaptureDevicePosition preferredDevicePosition() const { return read(preferred_.preferredDevicePosition); }
  /// Switches, with a blur over the last frame until 0.3 s after the last switch when `blurSwitch`. When there is no
  /// such camera the other one is used. `unspecified` only keeps the wish.
  void setPreferredDevicePosition(CaptureDevicePosition position);
  bool blurSwitch() const { return read(preferred_.blurSwitch); }
  void setBlurSwitch(bool blurSwitch) { write(preferred_.blurSwitch, blurSwitch); }

  std::string sessionPreset() const { return captureSession->sessionPreset(); }
  std::string preferredSessionPreset() const { return read(preferred_.preferredSessionPreset); }
  void setPreferredSessionPreset(const std::string& preset);
  /// Of the data output; `landscapeRight` without a camera.
  CaptureVideoOrientation videoOrientation() const;
  CaptureVideoOrientation preferredVideoOrientation() const { return read(preferred_.preferredVideoOrientation); }
  void setPreferredVideoOrientation(CaptureVideoOrientation orientation);

  /// Of the frames that come out. The crop follows with the next frame of another size.
  Size size() const { return read(preferred_.size); }
  void setSize(Size size);
  TavrelGPUImageFillModeType previewScalingMode() const { return read(preferred_.previewScalingMode); }
  void setPreviewScalingMode(TavrelGPUImageFillModeType mode);
  bool mirrorFrontPreview() const { return read(preferred_.mirrorFrontPreview); }
  void setMirrorFrontPreview(bool mirrors) { setMirror(preferred_.mirrorFrontPreview, mirrors); }
  bool mirrorBackPreview() const { return read(preferred_.mirrorBackPreview); }
  void setMirrorBackPreview(bool mirrors) { setMirror(preferred_.mirrorBackPreview, mirrors); }
  bool mirrorFrontEncoded() const { return read(preferred_.mirrorFrontEncoded); }
  void setMirrorFrontEncoded(bool mirrors) { setMirror(preferred_.mirrorFrontEncoded, mirrors); }
  bool mirrorBackEncoded() const { return read(preferred_.mirrorBackEncoded); }
  void setMirrorBackEncoded(bool mirrors) { setMirror(preferred_.mirrorBackEncoded, mirrors); }
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
  double preferredMinFrameRate() const { return read(preferred_.preferredMinFrameRate); }
  void setPreferredMinFrameRate(double rate);
  double preferredMaxFrameRate() const { return read(preferred_.preferredMaxFrameRate); }
  void setPreferredMaxFrameRate(double rate);
  CaptureTorchMode torchMode() const;
  CaptureTorchMode preferredTorchMode() const { return read(preferred_.preferredTorchMode); }
  void setPreferredTorchMode(CaptureTorchMode mode);
  CaptureFlashMode flashMode() const;
  CaptureFlashMode preferredFlashMode() const { return read(preferred_.preferredFlashMode); }
  void setPreferredFlashMode(CaptureFlashMode mode);
  double videoMaxZoomFactor() const;
  double videoZoomFactor() const;
  double preferredVideoZoomFactor() const { return read(preferred_.preferredVideoZoomFactor); }
  void setPreferredVideoZoomFactor(double factor);
  bool continuousAutoFocusEnable() const;
  bool preferredContinuousAutoFocusEnable() const { return read(preferred_.preferredContinuousAutoFocusEnable); }
  /// Does nothing while continuous auto exposure is in that state already.
  void setPreferredContinuousAutoFocusEnable(bool isEnabled);
  bool continuousAutoExposureEnable() const;
  bool preferredContinuousAutoExposureEnable() const { return read(preferred_.preferredContinuousAutoExposureEnable); }
  void setPreferredContinuousAutoExposureEnable(bool isEnabled);
  /// (0, 0) the top left, (1, 1) the bottom right of the sensor's picture in landscape.
  Point focusPointOfInterest() const;
  Point preferredFocusPointOfInterest() const { return read(preferred_.preferredFocusPointOfInterest); }
  void setPreferredFocusPointOfInterest(Point point);
  Point exposurePointOfInterest() const;
  Point preferredExposurePointOfInterest() const { return read(preferred_.preferredExposurePointOfInterest); }
  void setPreferredExposurePointOfInterest(Point point);

  /// Bits of `TavrelCameraTapPreviewAction`; 0: taps on the preview do nothing. Main thread.
  unsigned tapPreviewAction() const { return read(preferred_.tapPreviewAction); }
  void setTapPreviewAction(unsigned tapPreviewAction);
  /// A point of the preview, in 0…1 of its width and height, as a point of the device.
  Point covertPreviewPointToFocusPoint(Point previewPoint) const;

  /// Ends the observation of the application's state. For who wants to keep a camera that goes on in the background.
  void removeObservers();

  void didOutputSampleBuffer(TavrelSampleBufferDelegateProxy& proxy, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  using EffectObserver = std::pair<std::shared_ptr<TavrelCaptureEffect>, TavrelCaptureEffect::ChangeObserverToken>;
  explicit TavrelCamera(const TavrelCameraConfiguration& configuration);

  // Set-up and session.
  Expected<void> setupCaptureSession();
  Expected<void> addOutput(const std::shared_ptr<CaptureOutput>& output, const char* failureDescription);
  void makeInputs();
  void setupGPUImage();
  void addObservers();
  void setPreferredDevicePosition(CaptureDevicePosition position, bool initial);
  void blurLastFrame();
  void scheduleRemoveBlur();
  void removeBlur();
  void exchangeInput(CaptureDevicePosition position);
  void prepareConnection(const CaptureOutput& output) const;
  void refreshForNewDevice();
  std::shared_ptr<CaptureConnection> videoConnection(const CaptureOutput& output) const;

  // Device controls.
  std::shared_ptr<CaptureDevice> device() const;
  /// Locks the device, changes it and unlocks it; logs `what` and the reason when it cannot be locked.
  void configure(CaptureDevice& device, const char* what, const std::function<void()>& change) const;
  void setFrameRate(double rate, double current, void (CaptureDevice::*setDuration)(MediaTime), const char* what);
  void previewTaped(const TapGestureRecognizer& recognizer);

  // Frames and chain.
  static void drop(std::atomic<std::uint64_t>& counter, TraceName reason);
  static void traceDelivery();
  bool hasOrientationOfOldCamera(std::size_t width, std::size_t height) const;
  std::shared_ptr<PixelBuffer> applyPerFrameEffects(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                    const SampleTiming& timing, MediaTime frameTime);
  void refreshCropRegion();
  void refreshForNewCaptureEffects();
  void addCaptureEffectsKVOs(const CaptureEffects& effects);
  void removetCaptureEffectsKVOs();
  void captureEffectDidChange(TavrelCaptureEffect& effect, std::string_view property);
  void refreshGPUImagePipeline();
  // With `cameraOutputLock` held.
  void rebuildPipeline();
  void takeChainApart();
  void setMirror(bool& property, bool mirrors);
  void completeFrame(TavrelGPUImageOutput& output, MediaTime frameTime);
  void answerSnapshot(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer);
  void processStillImage(Expected<std::shared_ptr<SampleBuffer>> sampleBuffer, SnapshotCompletion completion);

  template <typename Value>
  Value read(const Value& property) const {
    const std::lock_guard lock(propertyMutex_);
    return property;
  }
  template <typename Value>
  void write(Value& property, std::type_identity_t<Value> value) {
    const std::lock_guard lock(propertyMutex_);
    property = std::move(value);
  }

  mutable std::mutex propertyMutex_;
  TavrelCameraConfiguration preferred_;  // what the caller wants; the effects are kept in `captureEffects_`
  std::weak_ptr<TavrelCameraDelegate> delegate_;
  std::shared_ptr<const CaptureEffects> captureEffects_ = std::make_shared<const CaptureEffects>();
  std::vector<EffectObserver> effectObservers_;

  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> pixelBufferInput;
  std::shared_ptr<TavrelGPUImageCropFilter> cropFilter;
  std::shared_ptr<TavrelGPUImageTransformFilter> mirroredFilter;
  std::shared_ptr<TavrelGPUImageView> previewView_;
  std::shared_ptr<TavrelFocusView> focusView;
  std::shared_ptr<CaptureDeviceInput> frontInput;
  std::shared_ptr<CaptureDeviceInput> backInput;
  std::shared_ptr<CaptureDeviceInput> currentInput;
  std::shared_ptr<CaptureSession> captureSession;
  std::shared_ptr<CaptureVideoDataOutput> dataOutput;
  std::shared_ptr<CaptureStillImageOutput> stillImageOutput;
  std::shared_ptr<TapGestureRecognizer> tapGestureRecognizer;
  Size originalSize;
  Size previeousOriginalSize;
  std::vector<SnapshotCompletion> snapshotCompletionHandlers;
  MediaTime sampleTimeDuration;
  std::mutex cameraOutputLock;
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> picturesNeedToBeProcessed;
  std::shared_ptr<TavrelGPUImageGaussianBlurFilter> blurFilter_;
  std::map<std::uint64_t, TavrelCaptureEffectNodes> effectsToFilterDictionary;  // by the effect's address
  std::mutex snapshotLock;
  std::shared_ptr<TavrelSampleBufferDelegateProxy> dataProxy;
  std::atomic<bool> shouldBlur = false;
  std::shared_ptr<PixelBuffer> lastBuffer;
  std::atomic<bool> isInBackground = false;
  std::atomic<bool> running_ = false;
  std::atomic<std::uint64_t> blurGeneration_ = 0;
  std::vector<NotificationCenter::ObserverToken> observers_;
  std::atomic<std::uint64_t> processed_ = 0;
  std::atomic<std::uint64_t> busy_ = 0;
  std::atomic<std::uint64_t> whileSwitching_ = 0;
  std::atomic<std::uint64_t> whileNotRunning_ = 0;
};

}  // namespace tavrel
