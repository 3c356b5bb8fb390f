#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Capture/Video/Private/CameraChain.h"
#include "Capture/Video/Private/CameraControls.h"
#include "Capture/Video/Private/CameraEffects.h"
#include "Capture/Video/Private/CameraSession.h"
#include "Capture/Video/Private/CameraSnapshots.h"
#include "Capture/Video/Private/ChainChange.h"
#include "Capture/Video/TavrelCamera.h"
#include "Capture/Video/TavrelFocusView.h"
#include "Capture/Video/TavrelSampleBufferDelegateProxy.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/UI/TapGestureRecognizer.h"

namespace tavrel {

/// A camera's parts, and what they do together. Locks are taken in the order `effectsLock`, `cameraOutputLock`; each
/// part has a lock of its own inside.
struct TavrelCamera::Implementation {
  explicit Implementation(const TavrelCameraConfiguration& configuration) : wishes(configuration) {}
  ~Implementation();

  Expected<void> setUp(const std::shared_ptr<TavrelCamera>& owner);
  void addObservers();
  void removeObservers();
  /// Whether it runs then: access was granted, and nobody stopped it meanwhile.
  bool start(bool isGranted);
  void stop();

  // The chain.
  CameraChain::Form chainForm(Size size) const;
  bool mirrors(bool TavrelCameraConfiguration::*front, bool TavrelCameraConfiguration::*back) const;
  /// What the device leaves of its zoom.
  double zoomOfChain() const;
  void setMirror(bool TavrelCameraConfiguration::*wish, bool mirrors);
  void setCaptureEffects(CameraEffects::List list);
  /// At once if all programs are made, else once they are.
  void refreshForNewCaptureEffects();
  void takeChainChange();
  /// With `effectsLock` held; returns what is out of use, to be destroyed without it.
  CameraEffects::Made take(const ChainChange::Wanted& wanted);
  /// Of the frames that come next; empty without a device.
  Size expectedFrameSize() const;
  void refreshGPUImagePipeline();

  // Switching.
  void setPreferredDevicePosition(CaptureDevicePosition position);
  void setPreferredDeviceID(const std::string& deviceID);
  /// With `cameraOutputLock` held; `exchange` puts another input in place.
  void switchInput(const std::function<void()>& exchange);
  void blurLastFrame();
  void removeBlur();

  // Frames.
  void process(const std::shared_ptr<SampleBuffer>& sampleBuffer, const std::shared_ptr<CaptureConnection>& connection);
  bool hasOrientationOfOldCamera(Size frameSize) const;
  void completeFrame(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime frameTime);
  /// Nothing for a frame of no device.
  std::optional<MediaTime> captureTimeOf(MediaTime frameTime) const;
  void processStillImage(Expected<std::shared_ptr<SampleBuffer>> still, SnapshotCompletion completion);

  // Taps. Main thread.
  void refreshTapGestureRecognizer();
  void previewTaped(const TapGestureRecognizer& recognizer);

  /// What `read` says of the device in use, or `otherwise`.
  template <typename Value, typename Read>
  Value ofDevice(Read read, Value otherwise) const {
    const auto device = session.device();
    return device ? read(*device) : otherwise;
  }
  std::shared_ptr<PixelBuffer> lastFrame() const {
    const std::lock_guard lock(frameMutex);
    return lastBuffer;
  }
  std::shared_ptr<TavrelCameraDelegate> receiver() const {
    const std::lock_guard lock(delegateMutex);
    return delegate.lock();
  }

  std::weak_ptr<TavrelCamera> camera;
  CameraWishes wishes;
  CameraSession session;
  CameraControls controls{wishes, session};
  CameraEffects effects;
  CameraSnapshots snapshots;
  std::shared_ptr<TavrelGPUImageView> previewView;
  std::shared_ptr<TavrelFocusView> focusView;
  std::shared_ptr<TapGestureRecognizer> tapGestureRecognizer;
  std::shared_ptr<TavrelSampleBufferDelegateProxy> dataProxy;
  mutable std::mutex delegateMutex;
  std::weak_ptr<TavrelCameraDelegate> delegate;
  std::vector<NotificationCenter::ObserverToken> observers;

  std::mutex effectsLock;       ///< while effects become nodes
  std::mutex cameraOutputLock;  ///< of the chain and of the input in use; a frame that finds it held is dropped
  std::unique_ptr<CameraChain> chain;
  Size chainSize;                            ///< with which `chain` was built
  std::shared_ptr<ChainChange> chainChange;  ///< begun and ended with `effectsLock` held

  std::atomic<bool> running = false;
  std::atomic<bool> isInBackground = false;
  std::atomic<bool> shouldBlur = false;
  std::atomic<std::uint64_t> blurGeneration = 0;

  /// Of the frame that came last.
  mutable std::mutex frameMutex;
  std::shared_ptr<PixelBuffer> lastBuffer;
  MediaTime sampleTimeDuration;
  /// Arrival and capture of the latest frames, of which one is in the chain.
  std::array<std::pair<MediaTime, MediaTime>, 4> captureTimes;
  std::size_t nextCaptureTime = 0;

  std::atomic<std::uint64_t> processed = 0;
  std::atomic<std::uint64_t> busy = 0;
  std::atomic<std::uint64_t> whileSwitching = 0;
  std::atomic<std::uint64_t> whileNotRunning = 0;
};

}  // namespace tavrel
