#include "Capture/Video/Private/CameraSession.h"

#include <utility>

#include "Platform/Capture/CaptureDevice.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

Expected<void> CameraSession::setUp(const TavrelCameraConfiguration& wishes,
                                    const std::shared_ptr<CaptureVideoDataOutputSampleBufferDelegate>& delegate) {
  captureSession = CaptureSession::create();
  captureSession->beginConfiguration();
  setSessionPreset(wishes.preferredSessionPreset);

  dataOutput = CaptureVideoDataOutput::create();
  dataOutput->setAlwaysDiscardsLateVideoFrames(true);
  dataOutput->setSampleBufferDelegate(delegate, DispatchQueue::create("video.tavrel.videocapture"));
  if (auto added = addOutput(dataOutput, "data output not available"); !added) return added;
  stillImageOutput = CaptureStillImageOutput::create();
  if (auto added = addOutput(stillImageOutput, "still image output not available"); !added) return added;

  makeInputs();
  const bool isNamed =
      !wishes.preferredDeviceID.empty() && exchangeInput(wishes.preferredDeviceID, wishes.preferredVideoOrientation);
  if (!isNamed && wishes.preferredDevicePosition != CaptureDevicePosition::unspecified) {
    exchangeInput(wishes.preferredDevicePosition, wishes.preferredVideoOrientation);
  }
  captureSession->commitConfiguration();
  return {};
}

Expected<void> CameraSession::addOutput(const std::shared_ptr<CaptureOutput>& output, const char* failureDescription) {
  if (!captureSession->canAddOutput(output)) {
    Error error = TavrelNewError(kTavrelErrorCode, failureDescription);
    TAVREL_LOG_ERROR(kCameraLogTag, "{}", error.description);
    return tl::unexpected(std::move(error));
  }
  captureSession->addOutput(output);
  return {};
}

void CameraSession::makeInputs() {
  for (const auto& device : CaptureDevice::devicesWithMediaType(MediaType::video)) {
    const bool isFront = device->position() == CaptureDevicePosition::front;
    if (!isFront && device->position() != CaptureDevicePosition::back) continue;
    if (auto input = CaptureDeviceInput::create(device)) {
      (isFront ? frontInput : backInput) = std::move(*input);
    } else {
      TAVREL_LOG_WARNING(kCameraLogTag, "{} camera not available: {}", isFront ? "front" : "back",
                         input.error().description);
    }
  }
}

std::shared_ptr<CaptureDevice> CameraSession::device() const {
  const std::lock_guard lock(currentInputMutex_);
  return currentInput ? currentInput->device() : nullptr;
}

CaptureDevicePosition CameraSession::devicePosition() const {
  const auto current = device();
  return current ? current->position() : CaptureDevicePosition::unspecified;
}

void CameraSession::exchangeInput(CaptureDevicePosition position, CaptureVideoOrientation orientation) {
  captureSession->removeInput(currentInput);
  const bool wantsFront = position == CaptureDevicePosition::front;
  const auto& wanted = wantsFront ? frontInput : backInput;
  const auto& other = wantsFront ? backInput : frontInput;
  std::shared_ptr<CaptureDeviceInput> added;
  if (captureSession->canAddInput(wanted)) {
    added = wanted;
  } else if (captureSession->canAddInput(other)) {
    added = other;
    TAVREL_LOG_ERROR(kCameraLogTag, "{} camera not available, using {} camera", wantsFront ? "front" : "back",
                     wantsFront ? "back" : "front");
  } else {
    TAVREL_LOG_ERROR(kCameraLogTag, "no camera available");
  }
  use(std::move(added), orientation);
}

bool CameraSession::exchangeInput(const std::string& deviceID, CaptureVideoOrientation orientation) {
  auto input = CaptureDeviceInput::create(CaptureDevice::deviceWithUniqueID(deviceID));
  if (!input) {
    TAVREL_LOG_ERROR(kCameraLogTag, "camera {} not available: {}", deviceID, input.error().description);
    return false;
  }
  captureSession->removeInput(currentInput);
  if (!captureSession->canAddInput(*input)) {
    TAVREL_LOG_ERROR(kCameraLogTag, "camera {} not available: the session refuses it", deviceID);
    use(currentInput, orientation);
    return false;
  }
  const CaptureDevicePosition position = (*input)->device()->position();
  if (position == CaptureDevicePosition::front) frontInput = *input;
  if (position == CaptureDevicePosition::back) backInput = *input;
  use(std::move(*input), orientation);
  return true;
}

void CameraSession::use(std::shared_ptr<CaptureDeviceInput> input, CaptureVideoOrientation orientation) {
  if (input) captureSession->addInput(input);
  {
    const std::lock_guard lock(currentInputMutex_);
    currentInput = std::move(input);
  }
  for (const auto& connection : {frameConnection(), stillImageConnection()}) {
    if (!connection) continue;
    // Mirroring is the chain's work, so that preview and recording can differ.
    connection->setAutomaticallyAdjustsVideoMirroring(false);
    if (connection->isVideoOrientationSupported()) connection->setVideoOrientation(orientation);
  }
}

void CameraSession::setSessionPreset(const std::string& preset) {
  if (captureSession->sessionPreset() == preset || !captureSession->canSetSessionPreset(preset)) return;
  captureSession->setSessionPreset(preset);
}

std::shared_ptr<CaptureConnection> CameraSession::frameConnection() const {
  return dataOutput->connectionWithMediaType(MediaType::video);
}

std::shared_ptr<CaptureConnection> CameraSession::stillImageConnection() const {
  return stillImageOutput->connectionWithMediaType(MediaType::video);
}

CaptureVideoOrientation CameraSession::videoOrientation() const {
  const auto connection = frameConnection();
  return connection ? connection->videoOrientation() : CaptureVideoOrientation::landscapeRight;
}

void CameraSession::setVideoOrientation(CaptureVideoOrientation orientation) {
  if (orientation == videoOrientation()) return;
  for (const auto& connection : {frameConnection(), stillImageConnection()}) {
    if (connection && connection->isVideoOrientationSupported()) connection->setVideoOrientation(orientation);
  }
}

}  // namespace tavrel
