#include <cmath>
#include <limits>

#include "Capture/Video/TavrelCamera.h"
#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel {

constexpr const char* kTag = "TavrelCamera";

// Several settings share one text: programs that watch the log know them like this.
constexpr const char* kTorchMode = "setPreferredTorchMode";
constexpr const char* kMinFrameRate = "setPreferredMinFrameRate";
constexpr const char* kMaxFrameRate = "setPreferredMaxFrameRate";
constexpr const char* kContinuousAutoFocus = "setPreferredContinuousAutoFocusEnable";
constexpr const char* kFocusPoint = "setPreferredFocusPointOfInterest";

namespace {

bool differs(double first, double second) {
  return std::abs(first - second) > std::numeric_limits<double>::epsilon();
}

}  // namespace

std::shared_ptr<CaptureDevice> TavrelCamera::device() const {
  const auto input = read(currentInput);
  return input ? input->device() : nullptr;
}

void TavrelCamera::configure(CaptureDevice& device, const char* what, const std::function<void()>& change) const {
  if (const auto locked = device.lockForConfiguration(); !locked) {
    TAVREL_LOG_ERROR(kTag, "{} error when lockForConfiguration for: {}", what, locked.error().description);
    return;
  }
  change();
  device.unlockForConfiguration();
}

std::vector<CaptureFrameRateRange> TavrelCamera::videoSupportedFrameRateRanges() const {
  const auto current = device();
  return current ? current->activeFormat()->videoSupportedFrameRateRanges : std::vector<CaptureFrameRateRange>();
}

double TavrelCamera::minFrameRate() const {
  const auto current = device();
  return 1 / (current ? current->activeVideoMaxFrameDuration().seconds() : 0);
}

double TavrelCamera::maxFrameRate() const {
  const auto current = device();
  return 1 / (current ? current->activeVideoMinFrameDuration().seconds() : 0);
}

void TavrelCamera::setFrameRate(double rate, double current, void (CaptureDevice::*setDuration)(MediaTime),
                                const char* what) {
  const auto camera = device();
  if (!camera || !differs(rate, current) || !captureSession->isRunning()) return;
  for (const CaptureFrameRateRange& range : camera->activeFormat()->videoSupportedFrameRateRanges) {
    if (rate < range.minFrameRate || rate > range.maxFrameRate) continue;
    configure(*camera, what, [&] { ((*camera).*setDuration)(MediaTime::fromSeconds(1 / rate, 1000)); });
    return;
  }
}

void TavrelCamera::setPreferredMinFrameRate(double rate) {
  write(preferred_.preferredMinFrameRate, rate);
  setFrameRate(rate, minFrameRate(), &CaptureDevice::setActiveVideoMaxFrameDuration, kMinFrameRate);
}

void TavrelCamera::setPreferredMaxFrameRate(double rate) {
  write(preferred_.preferredMaxFrameRate, rate);
  setFrameRate(rate, maxFrameRate(), &CaptureDevice::setActiveVideoMinFrameDuration, kMaxFrameRate);
}

CaptureTorchMode TavrelCamera::torchMode() const {
  const auto current = device();
  return current ? current->torchMode() : CaptureTorchMode::off;
}

void TavrelCamera::setPreferredTorchMode(CaptureTorchMode mode) {
  write(preferred_.preferredTorchMode, mode);
  const auto current = device();
  if (!current || current->torchMode() == mode || !captureSession->isRunning()) return;
  if (current->isTorchModeSupported(mode)) configure(*current, kTorchMode, [&] { current->setTorchMode(mode); });
}

CaptureFlashMode TavrelCamera::flashMode() const {
  const auto current = device();
  return current ? current->flashMode() : CaptureFlashMode::off;
}

void TavrelCamera::setPreferredFlashMode(CaptureFlashMode mode) {
  write(preferred_.preferredFlashMode, mode);
  const auto current = device();
  if (!current || current->flashMode() == mode || !captureSession->isRunning()) return;
  if (current->isFlashModeSupported(mode)) configure(*current, kTorchMode, [&] { current->setFlashMode(mode); });
}

double TavrelCamera::videoMaxZoomFactor() const {
  const auto current = device();
  return current ? current->activeFormat()->videoMaxZoomFactor : 1;
}

double TavrelCamera::videoZoomFactor() const {
  const auto current = device();
  return current ? current->videoZoomFactor() : 1;
}

void TavrelCamera::setPreferredVideoZoomFactor(double factor) {
  write(preferred_.preferredVideoZoomFactor, factor);
  const auto current = device();
  if (!current || !differs(factor, current->videoZoomFactor()) || !captureSession->isRunning()) return;
  if (factor < 1 || factor > videoMaxZoomFactor()) return;
  configure(*current, kMaxFrameRate, [&] { current->setVideoZoomFactor(factor); });
}

bool TavrelCamera::continuousAutoFocusEnable() const {
  const auto current = device();
  return current && current->focusMode() == CaptureFocusMode::continuousAutoFocus;
}

void TavrelCamera::setPreferredContinuousAutoFocusEnable(bool isEnabled) {
  write(preferred_.preferredContinuousAutoFocusEnable, isEnabled);
  const auto current = device();
  // It is the exposure's state that is compared, as applications have come to expect.
  if (!current || isEnabled == continuousAutoExposureEnable() || !captureSession->isRunning()) return;
  const auto mode = isEnabled ? CaptureFocusMode::continuousAutoFocus : CaptureFocusMode::locked;
  if (!current->isFocusModeSupported(mode)) return;
  configure(*current, isEnabled ? kContinuousAutoFocus : kMaxFrameRate, [&] { current->setFocusMode(mode); });
}

bool TavrelCamera::continuousAutoExposureEnable() const {
  const auto current = device();
  return current && current->exposureMode() == CaptureExposureMode::continuousAutoExposure;
}

void TavrelCamera::setPreferredContinuousAutoExposureEnable(bool isEnabled) {
  write(preferred_.preferredContinuousAutoExposureEnable, isEnabled);
  const auto current = device();
  if (!current || isEnabled == continuousAutoExposureEnable() || !captureSession->isRunning()) return;
  const auto mode = isEnabled ? CaptureExposureMode::continuousAutoExposure : CaptureExposureMode::locked;
  if (!current->isExposureModeSupported(mode)) return;
  configure(*current, isEnabled ? kContinuousAutoFocus : kMaxFrameRate, [&] { current->setExposureMode(mode); });
}

Point TavrelCamera::focusPointOfInterest() const {
  const auto current = device();
  return current ? current->focusPointOfInterest() : Point{0.5, 0.5};
}

void TavrelCamera::setPreferredFocusPointOfInterest(Point point) {
  write(preferred_.preferredFocusPointOfInterest, point);
  const auto current = device();
  if (!current || point == current->focusPointOfInterest() || !captureSession->isRunning()) return;
  if (!current->isFocusPointOfInterestSupported()) return;
  configure(*current, kFocusPoint, [&] {
    current->setFocusPointOfInterest(point);
    if (preferredContinuousAutoFocusEnable() && current->isFocusModeSupported(CaptureFocusMode::continuousAutoFocus)) {
      current->setFocusMode(CaptureFocusMode::continuousAutoFocus);
    } else if (current->isFocusModeSupported(CaptureFocusMode::autoFocus)) {
      current->setFocusMode(CaptureFocusMode::autoFocus);
    }
  });
}

Point TavrelCamera::exposurePointOfInterest() const {
  const auto current = device();
  return current ? current->exposurePointOfInterest() : Point{0.5, 0.5};
}

void TavrelCamera::setPreferredExposurePointOfInterest(Point point) {
  write(preferred_.preferredExposurePointOfInterest, point);
  const auto current = device();
  if (!current || point == current->exposurePointOfInterest() || !captureSession->isRunning()) return;
  // The focus capability decides, here too.
  if (!current->isFocusPointOfInterestSupported()) return;
  configure(*current, kFocusPoint, [&] {
    current->setExposurePointOfInterest(point);
    if (preferredContinuousAutoExposureEnable() &&
        current->isExposureModeSupported(CaptureExposureMode::continuousAutoExposure)) {
      current->setExposureMode(CaptureExposureMode::continuousAutoExposure);
    } else if (current->isExposureModeSupported(CaptureExposureMode::autoExpose)) {
      current->setExposureMode(CaptureExposureMode::autoExpose);
    }
  });
}

void TavrelCamera::setTapPreviewAction(unsigned tapPreviewAction) {
  if (tapPreviewAction == this->tapPreviewAction()) return;
  write(preferred_.tapPreviewAction, tapPreviewAction);
  if (tapPreviewAction != kTavrelCameraTapPreviewActionNone && !tapGestureRecognizer) {
    previewView_->setUserInteractionEnabled(true);
    tapGestureRecognizer =
        std::make_shared<TapGestureRecognizer>([weakThis = weak_from_this()](TapGestureRecognizer& recognizer) {
          if (const auto camera = weakThis.lock()) camera->previewTaped(recognizer);
        });
    previewView_->addGestureRecognizer(tapGestureRecognizer);
  }
  if (tapGestureRecognizer) tapGestureRecognizer->setEnabled(tapPreviewAction != kTavrelCameraTapPreviewActionNone);
}

void TavrelCamera::previewTaped(const TapGestureRecognizer& recognizer) {
  const auto view = recognizer.view();
  if (!view || view->frame().size.width <= 0 || view->frame().size.height <= 0) return;
  const Point location = recognizer.locationInView(view.get());
  const Point tapped = {location.x / view->frame().size.width, location.y / view->frame().size.height};
  const Point point = covertPreviewPointToFocusPoint(tapped);
  const unsigned action = tapPreviewAction();
  if (const auto receiver = delegate()) receiver->didTakeTapActionAtPoint(*this, point, action);
  if ((action & kTavrelCameraTapPreviewActionFocus) != 0) setPreferredFocusPointOfInterest(point);
  if ((action & kTavrelCameraTapPreviewActionExposure) != 0) setPreferredExposurePointOfInterest(point);
  if ((action & kTavrelCameraTapPreviewActionShowFocusView) == 0) return;
  const Size preview = previewView_->frame().size;
  focusView->show({tapped.x * preview.width, tapped.y * preview.height});
}

Point TavrelCamera::covertPreviewPointToFocusPoint(Point previewPoint) const {
  const auto [x, y] = previewPoint;
  const auto connection = videoConnection(*dataOutput);
  const int orientation = connection ? static_cast<int>(connection->videoOrientation()) : 0;
  Point point = {0.5, 0.5};
  switch (orientation) {
    case static_cast<int>(CaptureVideoOrientation::portrait):
      point = {y, 1 - x};
      break;
    case static_cast<int>(CaptureVideoOrientation::portraitUpsideDown):
      point = {1 - y, x};
      break;
    case static_cast<int>(CaptureVideoOrientation::landscapeRight):
      point = {x, y};
      break;
    case static_cast<int>(CaptureVideoOrientation::landscapeLeft):
      point = {1 - x, 1 - y};
      break;
    default:
      break;
  }
  if (!mirrorPreview()) return point;
  const bool isPortrait = orientation == static_cast<int>(CaptureVideoOrientation::portrait) ||
                          orientation == static_cast<int>(CaptureVideoOrientation::portraitUpsideDown);
  if (isPortrait) return {point.x, 1 - point.y};
  return {1 - point.x, point.y};
}

}  // namespace tavrel
