#include "Capture/Video/Private/CameraImplementation.h"

#include <chrono>
#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/UI/Application.h"
#include "Platform/UI/Screen.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

constexpr std::chrono::milliseconds kBlurDuration(300);

Expected<void> TavrelCamera::Implementation::setUp(const std::shared_ptr<TavrelCamera>& owner) {
  camera = owner;
  dataProxy = std::make_shared<TavrelSampleBufferDelegateProxy>();
  dataProxy->setDelegate(owner);
  if (auto ready = session.setUp(wishes.all(), dataProxy); !ready) return ready;
  TavrelDispatchSyncMain([this] {
    previewView = std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, Screen::main().size()});
    previewView->setFillMode(wishes.get(&TavrelCameraConfiguration::previewScalingMode));
    refreshTapGestureRecognizer();
    focusView = std::make_shared<TavrelFocusView>(Rect{{0, 0}, {50, 50}});
    previewView->addSubview(focusView);
    isInBackground = Application::shared().state() == ApplicationState::background;
  });
  chain = std::make_unique<CameraChain>(previewView, [weakCamera = camera](const auto& framebuffer, MediaTime time) {
    if (const auto alive = weakCamera.lock()) alive->implementation_->completeFrame(framebuffer, time);
  });
  chainChange = std::make_shared<ChainChange>([weakCamera = camera] {
    if (const auto alive = weakCamera.lock()) alive->implementation_->takeChainChange();
  });
  addObservers();
  setCaptureEffects(wishes.set(&TavrelCameraConfiguration::captureEffects, {}));
  return {};
}

TavrelCamera::Implementation::~Implementation() {
  if (chainChange) chainChange->end();
}

void TavrelCamera::Implementation::addObservers() {
  const auto observe = [this](const char* name, bool isBackground) {
    observers.push_back(NotificationCenter::defaultCenter().addObserver(
        name, [weakCamera = camera, isBackground](std::string_view, const void*) {
          if (const auto alive = weakCamera.lock()) alive->implementation_->isInBackground = isBackground;
        }));
  };
  observe(kApplicationDidEnterBackgroundNotification, true);
  observe(kApplicationWillEnterForegroundNotification, false);
}

void TavrelCamera::Implementation::removeObservers() {
  decltype(observers) ended;
  {
    const std::lock_guard lock(delegateMutex);
    ended.swap(observers);
  }
  for (const auto token : ended) NotificationCenter::defaultCenter().removeObserver(token);
}

bool TavrelCamera::Implementation::start(bool isGranted) {
  if (!isGranted) running = false;
  // Without a lock, since `stop` must not wait for a device that does not start: what it did meanwhile is done again.
  while (running) {
    // So that the first frame has its effects and need not wait.
    chainChange->wait([this] { return !running; });
    if (!running) break;
    session.platformSession()->startRunning();
    if (running) {
      controls.refreshForNewDevice();
      return true;
    }
    session.platformSession()->stopRunning();
  }
  return false;
}

void TavrelCamera::Implementation::stop() {
  running = false;
  if (chainChange) chainChange->wake();
  session.platformSession()->stopRunning();
  {
    const std::lock_guard lock(frameMutex);
    lastBuffer.reset();
  }
  // A frame that is in the chain is not handed out any more, once this is through.
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
}

bool TavrelCamera::Implementation::mirrors(bool TavrelCameraConfiguration::*front,
                                           bool TavrelCameraConfiguration::*back) const {
  const CaptureDevicePosition position = session.devicePosition();
  return (position == CaptureDevicePosition::front && wishes.get(front)) ||
         (position == CaptureDevicePosition::back && wishes.get(back));
}

CameraChain::Form TavrelCamera::Implementation::chainForm(Size size) const {
  using Configuration = TavrelCameraConfiguration;
  return {.size = size,
          .isBlurred = shouldBlur,
          .mirrorsPreview = mirrors(&Configuration::mirrorFrontPreview, &Configuration::mirrorBackPreview),
          .mirrorsEncoded = mirrors(&Configuration::mirrorFrontEncoded, &Configuration::mirrorBackEncoded),
          .zoom = zoomOfChain()};
}

double TavrelCamera::Implementation::zoomOfChain() const {
  return ofDevice([](const CaptureDevice& device) { return device.digitalZoomFactor(); }, 1.0);
}

void TavrelCamera::Implementation::setMirror(bool TavrelCameraConfiguration::*wish, bool mirrors) {
  if (wishes.set(wish, mirrors) != mirrors) refreshGPUImagePipeline();
}

void TavrelCamera::Implementation::setCaptureEffects(CameraEffects::List list) {
  effects.set(std::move(list), [weakCamera = camera](TavrelCaptureEffect& effect, std::string_view property) {
    const auto alive = weakCamera.lock();
    if (!alive || alive->implementation_->effects.applyChange(effect, property)) return;
    alive->implementation_->refreshForNewCaptureEffects();
  });
  refreshForNewCaptureEffects();
}

void TavrelCamera::Implementation::refreshForNewCaptureEffects() {
  CameraEffects::Made replaced;
  const std::lock_guard effectsGuard(effectsLock);
  const Size size = wishes.get(&TavrelCameraConfiguration::size);
  const ChainChange::Wanted wanted = {effects.makeNodes(size), chainForm(size), expectedFrameSize()};
  if (CameraChain::isPrepared(wanted.effects->nodes, wanted.form, wanted.frameSize)) {
    replaced = take(wanted);
  } else {
    chainChange->begin(wanted);
  }
}

void TavrelCamera::Implementation::takeChainChange() {
  CameraEffects::Made replaced;
  const std::lock_guard effectsGuard(effectsLock);
  if (const auto wanted = chainChange->prepared()) replaced = take(*wanted);
}

CameraEffects::Made TavrelCamera::Implementation::take(const ChainChange::Wanted& wanted) {
  CameraEffects::Made replaced;
  {
    const std::lock_guard outputGuard(cameraOutputLock);
    replaced = *effects.use(wanted.effects);
    replaced.nodes = chain->exchangeNodes(wanted.effects->nodes);
    chainSize = wanted.form.size;
    chain->refreshGPUImagePipeline(chainForm(chainSize));
  }
  chainChange->end();
  return replaced;
}

Size TavrelCamera::Implementation::expectedFrameSize() const {
  const auto last = lastFrame();
  if (last) return {static_cast<double>(last->width()), static_cast<double>(last->height())};
  using Format = std::shared_ptr<const CaptureDeviceFormat>;
  const Format format = ofDevice([](const CaptureDevice& device) { return device.activeFormat(); }, Format());
  if (!format) return {};
  const CaptureVideoOrientation orientation = session.videoOrientation();
  const bool isUpright =
      orientation == CaptureVideoOrientation::portrait || orientation == CaptureVideoOrientation::portraitUpsideDown;
  const auto width = static_cast<double>(format->dimensions.width);
  const auto height = static_cast<double>(format->dimensions.height);
  return isUpright == (height >= width) ? Size{width, height} : Size{height, width};
}

void TavrelCamera::Implementation::refreshGPUImagePipeline() {
  const std::lock_guard lock(cameraOutputLock);
  chain->refreshGPUImagePipeline(chainForm(chainSize));
}

void TavrelCamera::Implementation::setPreferredDevicePosition(CaptureDevicePosition position) {
  const std::lock_guard lock(cameraOutputLock);
  wishes.set(&TavrelCameraConfiguration::preferredDevicePosition, position);
  if (position == session.devicePosition() || position == CaptureDevicePosition::unspecified) return;
  switchInput(
      [&] { session.exchangeInput(position, wishes.get(&TavrelCameraConfiguration::preferredVideoOrientation)); });
}

void TavrelCamera::Implementation::setPreferredDeviceID(const std::string& deviceID) {
  const std::lock_guard lock(cameraOutputLock);
  wishes.set(&TavrelCameraConfiguration::preferredDeviceID, deviceID);
  const auto current = session.device();
  if (deviceID.empty() || (current && current->uniqueID() == deviceID)) return;
  switchInput(
      [&] { session.exchangeInput(deviceID, wishes.get(&TavrelCameraConfiguration::preferredVideoOrientation)); });
}

void TavrelCamera::Implementation::switchInput(const std::function<void()>& exchange) {
  if (wishes.get(&TavrelCameraConfiguration::blurSwitch)) blurLastFrame();
  session.platformSession()->beginConfiguration();
  exchange();
  controls.refreshForNewDevice();
  // Under the blur the chain is rebuilt when that is removed.
  if (!shouldBlur) chain->refreshGPUImagePipeline(chainForm(chainSize));
  session.platformSession()->commitConfiguration();
}

void TavrelCamera::Implementation::blurLastFrame() {
  if (!shouldBlur.exchange(true)) {
    chain->refreshGPUImagePipeline(chainForm(chainSize));
    if (const auto last = lastFrame()) chain->process(last, CaptureClock::current()->now(), true);
  }
  DispatchQueue::main()->asyncAfter(kBlurDuration, [weakCamera = camera, generation = ++blurGeneration] {
    const auto alive = weakCamera.lock();
    // A later switch has its own request.
    if (alive && alive->implementation_->blurGeneration == generation) alive->implementation_->removeBlur();
  });
}

void TavrelCamera::Implementation::removeBlur() {
  shouldBlur = false;
  refreshGPUImagePipeline();
}

void TavrelCamera::Implementation::refreshTapGestureRecognizer() {
  const bool isWanted = wishes.get(&TavrelCameraConfiguration::tapPreviewAction) != kTavrelCameraTapPreviewActionNone;
  if (isWanted && !tapGestureRecognizer) {
    previewView->setUserInteractionEnabled(true);
    tapGestureRecognizer =
        std::make_shared<TapGestureRecognizer>([weakCamera = camera](const TapGestureRecognizer& recognizer) {
          if (const auto alive = weakCamera.lock()) alive->implementation_->previewTaped(recognizer);
        });
    previewView->addGestureRecognizer(tapGestureRecognizer);
  }
  if (tapGestureRecognizer) tapGestureRecognizer->setEnabled(isWanted);
}

void TavrelCamera::Implementation::previewTaped(const TapGestureRecognizer& recognizer) {
  const auto view = recognizer.view();
  const auto owner = camera.lock();
  if (!owner || !view || view->frame().size.width <= 0 || view->frame().size.height <= 0) return;
  const Point location = recognizer.locationInView(view.get());
  const Point tapped = {location.x / view->frame().size.width, location.y / view->frame().size.height};
  const Point point = owner->covertPreviewPointToFocusPoint(tapped);
  const unsigned action = wishes.get(&TavrelCameraConfiguration::tapPreviewAction);
  if (const auto listener = receiver()) listener->didTakeTapActionAtPoint(*owner, point, action);
  if ((action & kTavrelCameraTapPreviewActionFocus) != 0) owner->setPreferredFocusPointOfInterest(point);
  if ((action & kTavrelCameraTapPreviewActionExposure) != 0) owner->setPreferredExposurePointOfInterest(point);
  if ((action & kTavrelCameraTapPreviewActionShowFocusView) == 0) return;
  const Size preview = previewView->frame().size;
  focusView->show({tapped.x * preview.width, tapped.y * preview.height});
}

}  // namespace tavrel
