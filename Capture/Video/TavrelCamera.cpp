#include "Capture/Video/TavrelCamera.h"

#include "Capture/Video/Private/CameraCropFilter.h"
#include "Platform/UI/Application.h"
#include "Platform/UI/Screen.h"
#include "TavrelBase/Log/TavrelLogger.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

constexpr const char* kTag = "TavrelCamera";

TavrelCamera::TavrelCamera(const TavrelCameraConfiguration& configuration) : preferred_(configuration) {
  preferred_.captureEffects.clear();
  preferred_.tapPreviewAction = kTavrelCameraTapPreviewActionNone;
}

Expected<std::shared_ptr<TavrelCamera>> TavrelCamera::create(const TavrelCameraConfiguration& configuration) {
  const std::shared_ptr<TavrelCamera> camera(new TavrelCamera(configuration));
  if (const auto ready = camera->setupCaptureSession(); !ready) return tl::unexpected(ready.error());
  camera->setupGPUImage();
  TavrelDispatchSyncMain([&] {
    camera->setTapPreviewAction(configuration.tapPreviewAction);
    camera->focusView = std::make_shared<TavrelFocusView>(Rect{{0, 0}, {50, 50}});
    camera->previewView_->addSubview(camera->focusView);
    camera->isInBackground = Application::shared().state() == ApplicationState::background;
  });
  camera->addObservers();
  camera->setCaptureEffects(configuration.captureEffects);
  return camera;
}

TavrelCamera::~TavrelCamera() {
  stop();
  removetCaptureEffectsKVOs();
}

Expected<void> TavrelCamera::addOutput(const std::shared_ptr<CaptureOutput>& output, const char* failureDescription) {
  if (!captureSession->canAddOutput(output)) {
    Error error = TavrelNewError(kTavrelErrorCode, failureDescription);
    TAVREL_LOG_ERROR(kTag, "{}", error.description);
    return tl::unexpected(std::move(error));
  }
  captureSession->addOutput(output);
  return {};
}

Expected<void> TavrelCamera::setupCaptureSession() {
  captureSession = CaptureSession::create();
  captureSession->beginConfiguration();
  setPreferredSessionPreset(preferredSessionPreset());

  dataOutput = CaptureVideoDataOutput::create();
  dataOutput->setAlwaysDiscardsLateVideoFrames(true);
  dataOutput->setVideoSettings({.pixelFormat = PixelFormat::bgra32});
  dataProxy = std::make_shared<TavrelSampleBufferDelegateProxy>();
  dataProxy->setDelegate(weak_from_this());
  dataOutput->setSampleBufferDelegate(dataProxy, DispatchQueue::create("video.tavrel.videocapture"));
  if (auto added = addOutput(dataOutput, "data output not available"); !added) return added;
  stillImageOutput = CaptureStillImageOutput::create();
  if (auto added = addOutput(stillImageOutput, "still image output not available"); !added) return added;

  makeInputs();
  setPreferredDevicePosition(preferredDevicePosition(), true);
  captureSession->commitConfiguration();
  return {};
}

void TavrelCamera::makeInputs() {
  const auto wished = CaptureDevice::deviceWithUniqueID(preferred_.preferredDeviceID);
  for (const auto& device : CaptureDevice::devicesWithMediaType(MediaType::video)) {
    const bool isFront = device->position() == CaptureDevicePosition::front;
    if (!isFront && device->position() != CaptureDevicePosition::back) continue;
    if (wished && wished != device && wished->position() == device->position()) continue;
    if (auto input = CaptureDeviceInput::create(device)) {
      (isFront ? frontInput : backInput) = std::move(*input);
    } else {
      TAVREL_LOG_WARNING(kTag, "{} camera not available: {}", isFront ? "front" : "back", input.error().description);
    }
  }
}

void TavrelCamera::setupGPUImage() {
  pixelBufferInput = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  cropFilter = std::make_shared<CameraCropFilter>();
  mirroredFilter = std::make_shared<TavrelGPUImageTransformFilter>();
  mirroredFilter->setAffineTransform(AffineTransform::makeScale(-1, 1));
  TavrelDispatchSyncMain([this] {
    previewView_ = std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, Screen::main().size()});
    previewView_->setFillMode(previewScalingMode());
  });
}

void TavrelCamera::addObservers() {
  const auto observe = [this](const char* name, bool isBackground) {
    observers_.push_back(NotificationCenter::defaultCenter().addObserver(
        name, [weakThis = weak_from_this(), isBackground](std::string_view, const void*) {
          if (const auto camera = weakThis.lock()) camera->isInBackground = isBackground;
        }));
  };
  observe(kApplicationDidEnterBackgroundNotification, true);
  observe(kApplicationWillEnterForegroundNotification, false);
}

void TavrelCamera::removeObservers() {
  for (const auto token : observers_) NotificationCenter::defaultCenter().removeObserver(token);
  observers_.clear();
}

void TavrelCamera::startWithCompletion(StartCompletion completion) {
  if (running_.exchange(true)) {
    if (completion) DispatchQueue::global()->async([completion = std::move(completion)] { completion(true); });
    return;
  }
  CaptureDevice::requestAccess(MediaType::video, [camera = shared_from_this(), completion](bool isGranted) {
    DispatchQueue::global()->async([camera, completion, isGranted] {
      // Whoever stopped meanwhile wants no camera any more.
      const bool isStarted = isGranted && camera->running_;
      if (isStarted) {
        camera->captureSession->startRunning();
        camera->refreshForNewDevice();
      } else {
        camera->running_ = false;
      }
      if (completion) completion(isStarted);
    });
  });
}

void TavrelCamera::stop() {
  captureSession->stopRunning();
  running_ = false;
  const std::lock_guard lock(cameraOutputLock);
  lastBuffer.reset();
}

std::shared_ptr<TavrelCameraDelegate> TavrelCamera::delegate() const {
  return read(delegate_).lock();
}

void TavrelCamera::setDelegate(std::weak_ptr<TavrelCameraDelegate> delegate) {
  write(delegate_, std::move(delegate));
}

void TavrelCamera::setPreferredSessionPreset(const std::string& preset) {
  write(preferred_.preferredSessionPreset, preset);
  if (captureSession->sessionPreset() == preset || !captureSession->canSetSessionPreset(preset)) return;
  captureSession->setSessionPreset(preset);
}

std::shared_ptr<CaptureConnection> TavrelCamera::videoConnection(const CaptureOutput& output) const {
  return output.connectionWithMediaType(MediaType::video);
}

CaptureVideoOrientation TavrelCamera::videoOrientation() const {
  const auto connection = videoConnection(*dataOutput);
  return connection ? connection->videoOrientation() : CaptureVideoOrientation::landscapeRight;
}

void TavrelCamera::setPreferredVideoOrientation(CaptureVideoOrientation orientation) {
  write(preferred_.preferredVideoOrientation, orientation);
  if (orientation == videoOrientation()) return;
  for (const CaptureOutput* output :
       {static_cast<CaptureOutput*>(dataOutput.get()), static_cast<CaptureOutput*>(stillImageOutput.get())}) {
    const auto connection = videoConnection(*output);
    if (connection && connection->isVideoOrientationSupported()) connection->setVideoOrientation(orientation);
  }
}

void TavrelCamera::setSize(Size size) {
  write(preferred_.size, size);
  refreshGPUImagePipeline();
}

void TavrelCamera::setPreviewScalingMode(TavrelGPUImageFillModeType mode) {
  if (mode == previewScalingMode()) return;
  write(preferred_.previewScalingMode, mode);
  previewView_->setFillMode(mode);
}

void TavrelCamera::setMirror(bool& property, bool mirrors) {
  if (read(property) == mirrors) return;
  write(property, mirrors);
  refreshGPUImagePipeline();
}

bool TavrelCamera::mirrorPreview() const {
  const CaptureDevicePosition position = devicePosition();
  return (position == CaptureDevicePosition::front && mirrorFrontPreview()) ||
         (position == CaptureDevicePosition::back && mirrorBackPreview());
}

bool TavrelCamera::mirrorEncoded() const {
  const CaptureDevicePosition position = devicePosition();
  return (position == CaptureDevicePosition::front && mirrorFrontEncoded()) ||
         (position == CaptureDevicePosition::back && mirrorBackEncoded());
}

}  // namespace tavrel
