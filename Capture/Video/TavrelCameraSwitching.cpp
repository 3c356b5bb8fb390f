#include <chrono>

#include "Capture/Video/TavrelCamera.h"
#include "Platform/Capture/CaptureClock.h"
#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel {

constexpr const char* kTag = "TavrelCamera";
constexpr std::chrono::milliseconds kBlurDuration(300);

CaptureDevicePosition TavrelCamera::devicePosition() const {
  const auto current = device();
  return current ? current->position() : CaptureDevicePosition::unspecified;
}

void TavrelCamera::switchCamera() {
  if (!frontInput || !backInput) {
    TAVREL_LOG_ERROR(kTag, "only one camera found");
    return;
  }
  const bool isFront = devicePosition() == CaptureDevicePosition::front;
  setPreferredDevicePosition(isFront ? CaptureDevicePosition::back : CaptureDevicePosition::front);
}

void TavrelCamera::setPreferredDevicePosition(CaptureDevicePosition position) {
  setPreferredDevicePosition(position, false);
}

void TavrelCamera::setPreferredDevicePosition(CaptureDevicePosition position, bool initial) {
  const std::lock_guard lock(cameraOutputLock);
  write(preferred_.preferredDevicePosition, position);
  if (position == devicePosition() || position == CaptureDevicePosition::unspecified) return;

  if (!initial && blurSwitch()) {
    if (!shouldBlur) blurLastFrame();
    scheduleRemoveBlur();
  }
  captureSession->beginConfiguration();
  exchangeInput(position);
  prepareConnection(*dataOutput);
  prepareConnection(*stillImageOutput);
  refreshForNewDevice();
  // Under the blur the chain is rebuilt when that is removed; before the first start there is none yet.
  if (!shouldBlur && !initial) rebuildPipeline();
  captureSession->commitConfiguration();
}

void TavrelCamera::blurLastFrame() {
  shouldBlur = true;
  rebuildPipeline();
  if (!lastBuffer) return;
  for (const auto& picture : picturesNeedToBeProcessed) picture->processImage();
  pixelBufferInput->processCVPixelBuffer(lastBuffer, CaptureClock::current()->now(), true);
}

void TavrelCamera::scheduleRemoveBlur() {
  const std::uint64_t generation = ++blurGeneration_;
  DispatchQueue::main()->asyncAfter(kBlurDuration, [weakThis = weak_from_this(), generation] {
    const auto camera = weakThis.lock();
    // A later switch has its own request.
    if (camera && camera->blurGeneration_ == generation) camera->removeBlur();
  });
}

void TavrelCamera::removeBlur() {
  shouldBlur = false;
  refreshGPUImagePipeline();
}

void TavrelCamera::exchangeInput(CaptureDevicePosition position) {
  captureSession->removeInput(currentInput);
  const bool wantsFront = position == CaptureDevicePosition::front;
  const auto& wanted = wantsFront ? frontInput : backInput;
  const auto& other = wantsFront ? backInput : frontInput;
  std::shared_ptr<CaptureDeviceInput> added;
  if (captureSession->canAddInput(wanted)) {
    added = wanted;
  } else if (captureSession->canAddInput(other)) {
    added = other;
    TAVREL_LOG_ERROR(kTag, "{} camera not available, using {} camera", wantsFront ? "front" : "back",
                     wantsFront ? "back" : "front");
  } else {
    TAVREL_LOG_ERROR(kTag, "no camera available");
  }
  if (added) captureSession->addInput(added);
  write(currentInput, added);
}

void TavrelCamera::prepareConnection(const CaptureOutput& output) const {
  const auto connection = videoConnection(output);
  if (!connection) return;
  // Mirroring is the chain's work, so that preview and recording can differ.
  connection->setAutomaticallyAdjustsVideoMirroring(false);
  if (connection->isVideoOrientationSupported()) connection->setVideoOrientation(preferredVideoOrientation());
}

void TavrelCamera::refreshForNewDevice() {
  if (!captureSession->isRunning()) return;
  setPreferredTorchMode(preferredTorchMode());
  setPreferredFlashMode(preferredFlashMode());
  setPreferredMinFrameRate(preferredMinFrameRate());
  setPreferredMaxFrameRate(preferredMaxFrameRate());
  setPreferredVideoZoomFactor(preferredVideoZoomFactor());
  setPreferredContinuousAutoFocusEnable(preferredContinuousAutoFocusEnable());
  setPreferredFocusPointOfInterest(preferredFocusPointOfInterest());
  setPreferredContinuousAutoExposureEnable(preferredContinuousAutoExposureEnable());
  setPreferredExposurePointOfInterest(preferredExposurePointOfInterest());
}

}  // namespace tavrel
