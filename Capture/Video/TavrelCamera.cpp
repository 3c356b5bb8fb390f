#include "Capture/Video/TavrelCamera.h"

#include <utility>

#include "Capture/Video/Private/CameraImplementation.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Dispatch/RunLoop.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

TavrelCamera::TavrelCamera(const TavrelCameraConfiguration& configuration)
    : implementation_(std::make_unique<Implementation>(configuration)) {}

Expected<std::shared_ptr<TavrelCamera>> TavrelCamera::create(const TavrelCameraConfiguration& configuration) {
  const std::shared_ptr<TavrelCamera> camera(new TavrelCamera(configuration));
  if (const auto ready = camera->implementation_->setUp(camera); !ready) return tl::unexpected(ready.error());
  return camera;
}

TavrelCamera::~TavrelCamera() { stop(); }

void TavrelCamera::startWithCompletion(StartCompletion completion) {
  if (implementation_->running.exchange(true)) {
    if (completion) DispatchQueue::global()->async([completion = std::move(completion)] { completion(true); });
    return;
  }
  CaptureDevice::requestAccess(MediaType::video, [camera = shared_from_this(), completion](bool isGranted) {
    DispatchQueue::global()->async([camera, completion, isGranted] {
      const bool isStarted = camera->implementation_->start(isGranted);
      if (completion) completion(isStarted);
    });
  });
}

void TavrelCamera::stop() { implementation_->stop(); }

bool TavrelCamera::running() const { return implementation_->running; }

std::shared_ptr<TavrelCameraDelegate> TavrelCamera::delegate() const { return implementation_->receiver(); }

void TavrelCamera::setDelegate(std::weak_ptr<TavrelCameraDelegate> delegate) {
  const std::lock_guard lock(implementation_->delegateMutex);
  implementation_->delegate = std::move(delegate);
}

const std::shared_ptr<TavrelGPUImageView>& TavrelCamera::previewView() const { return implementation_->previewView; }

void TavrelCamera::switchCamera() {
  if (!implementation_->session.hasBothCameras()) {
    TAVREL_LOG_ERROR(kCameraLogTag, "only one camera found");
    return;
  }
  const bool isFront = devicePosition() == CaptureDevicePosition::front;
  setPreferredDevicePosition(isFront ? CaptureDevicePosition::back : CaptureDevicePosition::front);
}

const std::shared_ptr<CaptureSession>& TavrelCamera::session() const {
  return implementation_->session.platformSession();
}

CaptureDevicePosition TavrelCamera::devicePosition() const { return implementation_->session.devicePosition(); }

void TavrelCamera::setPreferredDevicePosition(CaptureDevicePosition position) {
  implementation_->setPreferredDevicePosition(position);
}

std::string TavrelCamera::deviceID() const {
  return implementation_->ofDevice([](const CaptureDevice& device) { return device.uniqueID(); }, std::string());
}

void TavrelCamera::setPreferredDeviceID(const std::string& deviceID) {
  implementation_->setPreferredDeviceID(deviceID);
}

void TavrelCamera::setBlurSwitch(bool blurSwitch) {
  implementation_->wishes.set(&TavrelCameraConfiguration::blurSwitch, blurSwitch);
}

std::string TavrelCamera::sessionPreset() const { return session()->sessionPreset(); }

void TavrelCamera::setPreferredSessionPreset(const std::string& preset) {
  implementation_->wishes.set(&TavrelCameraConfiguration::preferredSessionPreset, preset);
  implementation_->session.setSessionPreset(preset);
}

CaptureVideoOrientation TavrelCamera::videoOrientation() const { return implementation_->session.videoOrientation(); }

void TavrelCamera::setPreferredVideoOrientation(CaptureVideoOrientation orientation) {
  implementation_->wishes.set(&TavrelCameraConfiguration::preferredVideoOrientation, orientation);
  implementation_->session.setVideoOrientation(orientation);
}

void TavrelCamera::setSize(Size size) {
  implementation_->wishes.set(&TavrelCameraConfiguration::size, size);
  // Effects place themselves on frames of that size.
  implementation_->refreshForNewCaptureEffects();
}

void TavrelCamera::setPreviewScalingMode(TavrelGPUImageFillModeType mode) {
  if (implementation_->wishes.set(&TavrelCameraConfiguration::previewScalingMode, mode) == mode) return;
  implementation_->previewView->setFillMode(mode);
}

bool TavrelCamera::mirrorPreview() const { return implementation_->chainForm({}).mirrorsPreview; }

bool TavrelCamera::mirrorEncoded() const { return implementation_->chainForm({}).mirrorsEncoded; }

TavrelCamera::CaptureEffects TavrelCamera::captureEffects() const { return implementation_->effects.list(); }

void TavrelCamera::setCaptureEffects(CaptureEffects captureEffects) {
  implementation_->setCaptureEffects(std::move(captureEffects));
}

bool TavrelCamera::isChangingEffects() const { return implementation_->chainChange->isPending(); }

void TavrelCamera::snapshotWithCompletion(SnapshotCompletion completion) {
  const auto connection = implementation_->session.stillImageConnection();
  if (!connection) {
    DispatchQueue::global()->async([completion = std::move(completion)] {
      completion(nullptr, TavrelNewError(kTavrelErrorCode, "snapshot not available"));
    });
    return;
  }
  implementation_->session.stillImages().captureStillImageAsynchronously(
      connection, [camera = shared_from_this(), completion = std::move(completion)](auto still) {
        camera->implementation_->controls.apply(CameraControl::torchMode);
        camera->implementation_->processStillImage(std::move(still), completion);
      });
}

MediaTime TavrelCamera::captureTime(MediaTime frameTime) const {
  return implementation_->captureTimeOf(frameTime).value_or(MediaTime::invalid());
}

TavrelCameraStatistics TavrelCamera::statistics() const {
  TavrelCameraStatistics statistics;
  statistics.processed = implementation_->processed;
  statistics.late = implementation_->session.lateFrames();
  statistics.busy = implementation_->busy;
  statistics.whileSwitching = implementation_->whileSwitching;
  statistics.whileNotRunning = implementation_->whileNotRunning;
  statistics.delivered =
      statistics.processed + statistics.late + statistics.busy + statistics.whileSwitching + statistics.whileNotRunning;
  return statistics;
}

void TavrelCamera::setTapPreviewAction(unsigned tapPreviewAction) {
  if (implementation_->wishes.set(&TavrelCameraConfiguration::tapPreviewAction, tapPreviewAction) == tapPreviewAction) {
    return;
  }
  if (RunLoop::isMainThread()) return implementation_->refreshTapGestureRecognizer();
  DispatchQueue::main()->async([weakThis = weak_from_this()] {
    if (const auto camera = weakThis.lock()) camera->implementation_->refreshTapGestureRecognizer();
  });
}

Point TavrelCamera::covertPreviewPointToFocusPoint(Point previewPoint) const {
  const auto [x, y] = previewPoint;
  const auto connection = implementation_->session.frameConnection();
  const bool isMirrored = mirrorPreview();
  if (!connection) return {0.5, 0.5};
  // Of what the device sees, the chain may show the middle only.
  const auto inDevice = [zoom = implementation_->zoomOfChain()](double u, double v) {
    return zoom <= 1 ? Point{u, v} : Point{0.5 + (u - 0.5) / zoom, 0.5 + (v - 0.5) / zoom};
  };
  switch (connection->videoOrientation()) {
    case CaptureVideoOrientation::portrait: return inDevice(y, isMirrored ? x : 1 - x);
    case CaptureVideoOrientation::portraitUpsideDown: return inDevice(1 - y, isMirrored ? 1 - x : x);
    case CaptureVideoOrientation::landscapeRight: return inDevice(isMirrored ? 1 - x : x, y);
    case CaptureVideoOrientation::landscapeLeft: return inDevice(isMirrored ? x : 1 - x, 1 - y);
  }
  return {0.5, 0.5};
}

void TavrelCamera::removeObservers() { implementation_->removeObservers(); }

void TavrelCamera::didOutputSampleBuffer(TavrelSampleBufferDelegateProxy&,
                                         const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                         const std::shared_ptr<CaptureConnection>& connection) {
  implementation_->process(sampleBuffer, connection);
}

}  // namespace tavrel
