#include <cmath>
#include <utility>

#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"
#include "Platform/Capture/Virtual/VirtualCamera.h"

namespace tavrel {
namespace {

constexpr double kLargestZoom = 8;
/// How sharp the picture is when a corner is focused, at the least.
constexpr double kLeastFocus = 0.2;

double focusAt(Point point) { return std::fmax(kLeastFocus, 1 - std::hypot(point.x - 0.5, point.y - 0.5) * 1.2); }

double exposureAt(Point point) { return 1 + (point.y - 0.5) * 0.8; }

/// The first time from `now` on at which a frame of the scene is due when one falls on each whole second, as a flash
/// does: on any other grid it would be up to half a frame away from its beep.
MediaTime firstFrameTime(MediaTime now, double sceneTime, double frameRate) {
  constexpr double kRounding = 1e-6;  // of a frame
  const double wait = std::ceil(sceneTime * frameRate - kRounding) / frameRate - sceneTime;
  return now + MediaTime::fromSeconds(std::fmax(0, wait), CaptureClock::kTimescale);
}

std::shared_ptr<const CaptureDeviceFormat> makeFormat(CaptureVideoDimensions dimensions) {
  auto format = std::make_shared<CaptureDeviceFormat>();
  format->dimensions = dimensions;
  format->videoSupportedFrameRateRanges = {{1, 60}, {120, 120}};
  format->videoMaxZoomFactor = kLargestZoom;
  return format;
}

class VirtualCameraDriver : public VirtualDriver {
 public:
  VirtualCameraDriver(CaptureDeviceDescription description, std::shared_ptr<VirtualScene> scene)
      : VirtualDriver(std::move(description)),
        scene_(std::move(scene)),
        startsScene_(dynamic_cast<FileScene*>(scene_.get()) != nullptr) {}
  ~VirtualCameraDriver() override { VirtualCameraDriver::close(); }

  std::shared_ptr<const CaptureDeviceFormat> formatOfSize(CaptureVideoDimensions dimensions) override {
    return makeFormat(dimensions);
  }

  Expected<void> open(CaptureRun run) override {
    auto clock = begin(run.sink);
    if (!clock) return tl::unexpected(clock.error());
    const CaptureVideoDimensions size = run.format->dimensions;
    auto created = VirtualCamera::create(
        scene_, {.width = size.width, .height = size.height, .frameRate = run.frameRate, .clock = *clock});
    if (!created) {
      end();
      return tl::unexpected(created.error());
    }
    const std::lock_guard lock(mutex_);
    camera_ = *created;
    for (const CaptureControl control : kCaptureControls) applyTo(control, run.controls);
    camera_->setControls(lens_);
    camera_->setDropHandler([sink = run.sink, rate = run.frameRate](MediaTime time) {
      sink->didDrop({frameDurationOf(rate), time, MediaTime::invalid()});
    });
    const MediaTime now = (*clock)->now();
    const MediaTime start = startsScene_ ? now : firstFrameTime(now, sceneTimeAt(now), run.frameRate);
    camera_->start(
        [this, sink = std::move(run.sink), camera = std::weak_ptr(camera_)](
            std::shared_ptr<PixelBuffer> picture, MediaTime time) { deliver(*sink, camera, std::move(picture), time); },
        nullptr, start, startsScene_ ? 0 : sceneTimeAt(start));
    return {};
  }

  void close() override {
    std::shared_ptr<VirtualCamera> camera;
    {
      const std::lock_guard lock(mutex_);
      camera.swap(camera_);
    }
    if (!camera) return;
    camera->stop();
    end();
  }

  void setFrameRate(double framesPerSecond) override {
    const std::lock_guard lock(mutex_);
    if (camera_) camera_->setFrameRate(framesPerSecond);
  }

  void apply(CaptureControl control, const CaptureControls& controls) override {
    const std::lock_guard lock(mutex_);
    if (!camera_) return;
    applyTo(control, controls);
    camera_->setControls(lens_);
  }

 private:
  /// With the mutex held.
  void applyTo(CaptureControl control, const CaptureControls& controls) {
    switch (control) {
      case CaptureControl::torch:
        lens_.torchLevel = controls.torchMode == CaptureTorchMode::on ? 1 : 0;
        break;
      case CaptureControl::focus:
        if (controls.focusMode != CaptureFocusMode::locked) lens_.focus = focusAt(controls.focusPoint);
        break;
      case CaptureControl::exposure:
        if (controls.exposureMode != CaptureExposureMode::locked) lens_.exposure = exposureAt(controls.exposurePoint);
        break;
      case CaptureControl::zoom:
        lens_.zoom = controls.zoomFactor;
        break;
    }
  }

  void deliver(CaptureSink& sink, const std::weak_ptr<VirtualCamera>& weak, std::shared_ptr<PixelBuffer> picture,
               MediaTime time) const {
    if (isStalled()) return;
    const auto camera = weak.lock();
    const MediaTime duration = camera ? frameDurationOf(camera->frameRate()) : MediaTime::invalid();
    if (auto sample = SampleBuffer::createImage(std::move(picture), {duration, time, MediaTime::invalid()})) {
      sink.didCapture(std::move(*sample));
    }
  }

  const std::shared_ptr<VirtualScene> scene_;
  const bool startsScene_;  // a file is seen from its beginning
  std::mutex mutex_;
  std::shared_ptr<VirtualCamera> camera_;
  VirtualCamera::Controls lens_;
};

}  // namespace

std::shared_ptr<VirtualDriver> makeVirtualCameraDriver(CaptureDeviceDescription description,
                                                       std::shared_ptr<VirtualScene> scene) {
  constexpr CaptureVideoDimensions kSizes[] = {{320, 240}, {352, 288},  {640, 360},   {640, 480},
                                               {960, 540}, {1280, 720}, {1920, 1080}, {3840, 2160}};
  for (const CaptureVideoDimensions size : kSizes) description.formats.push_back(makeFormat(size));
  return std::make_shared<VirtualCameraDriver>(std::move(description), std::move(scene));
}

}  // namespace tavrel
