#include <cmath>
#include <utility>

#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"
#include "Platform/Capture/Virtual/VirtualScene.h"
#include "Platform/Graphics/PixelBufferPool.h"

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

/// Frame numbers on the time line: frame `number` is at `time`, the following ones in steps of 1 / frameRate, all of
/// them moved by `shift` seconds.
struct Anchor {
  std::uint64_t number = 0;
  MediaTime time;
  double frameRate = 30;
  double shift = 0;

  MediaTime timeOf(std::uint64_t wanted) const {
    if (wanted == number) return time;
    const double seconds = static_cast<double>(static_cast<std::int64_t>(wanted - number)) / frameRate + shift;
    return time + MediaTime::fromSeconds(seconds, CaptureClock::kTimescale);
  }
};

class VirtualCameraDriver : public VirtualDriver {
 public:
  VirtualCameraDriver(CaptureDeviceDescription description, std::shared_ptr<VirtualScene> scene)
      : VirtualDriver(std::move(description), "tavrel.vcam", 1),
        scene_(std::move(scene)),
        startsScene_(dynamic_cast<FileScene*>(scene_.get()) != nullptr) {}
  ~VirtualCameraDriver() override { close(); }

  std::shared_ptr<const CaptureDeviceFormat> formatOfSize(CaptureVideoDimensions dimensions) override {
    return makeFormat(dimensions);
  }

  void setFrameRate(double framesPerSecond) override {
    const std::lock_guard lock(mutex_);
    // The frame that is being waited for keeps its time. Those after it fall on the scene's seconds, as a flash does.
    anchor_.time = anchor_.timeOf(nextNumber_);
    anchor_.number = nextNumber_;
    const double sceneTime = sceneTimeOf(anchor_.time);
    anchor_.shift = std::round(sceneTime * framesPerSecond) / framesPerSecond - sceneTime;
    anchor_.frameRate = framesPerSecond;
    delivery_.note(&CaptureDelivery::framesPerSecond, framesPerSecond);
  }

  void apply(CaptureControl control, const CaptureControls& controls) override {
    if (!isOpen()) return;
    const std::lock_guard lock(mutex_);
    applyTo(control, controls);
  }

 private:
  void warmUp(const CaptureRun& run) override {
    scene_->prepare(run.format->dimensions.width, run.format->dimensions.height);
  }

  Expected<void> prepare(const CaptureRun& run, const MediaTime& now) override {
    const CaptureVideoDimensions size = run.format->dimensions;
    auto pool = PixelBufferPool::create(size.width, size.height, PixelFormat::bgra32);
    if (!pool) return tl::unexpected(pool.error());
    const std::lock_guard lock(mutex_);
    pool_ = std::move(*pool);
    for (const CaptureControl control : kCaptureControls) applyTo(control, run.controls);
    start_ = startsScene_ ? now : firstFrameTime(now, sceneTimeAt(now), run.frameRate);
    sceneStart_ = startsScene_ ? 0 : sceneTimeAt(start_);
    anchor_ = {.time = start_, .frameRate = run.frameRate};
    nextNumber_ = 0;
    return {};
  }

  /// With the mutex held.
  double sceneTimeOf(const MediaTime& time) const { return sceneStart_ + (time - start_).seconds(); }
  void applyTo(CaptureControl control, const CaptureControls& controls) {
    switch (control) {
      case CaptureControl::torch: lens_.torchLevel = controls.torchMode == CaptureTorchMode::on ? 1 : 0; break;
      case CaptureControl::focus:
        if (controls.focusMode != CaptureFocusMode::locked) lens_.focus = focusAt(controls.focusPoint);
        break;
      case CaptureControl::exposure:
        if (controls.exposureMode != CaptureExposureMode::locked) lens_.exposure = exposureAt(controls.exposurePoint);
        break;
      case CaptureControl::zoom: lens_.zoom = zooms() ? controls.zoomFactor : 1; break;
    }
  }

  MediaTime dueTime(std::uint64_t number) const override {
    const std::lock_guard lock(mutex_);
    return anchor_.timeOf(number);
  }

  std::optional<SampleTiming> timingOfDrop(std::uint64_t number) const override {
    const std::lock_guard lock(mutex_);
    return SampleTiming{frameDurationOf(anchor_.frameRate), anchor_.timeOf(number), MediaTime::invalid()};
  }

  Expected<std::shared_ptr<SampleBuffer>> sample(std::uint64_t number) override {
    const SampleTiming timing = *timingOfDrop(number);
    VirtualFrame frame;
    {
      const std::lock_guard lock(mutex_);
      nextNumber_ = number + 1;
      frame = lens_;
      frame.frameNumber = static_cast<std::uint32_t>(number);
      frame.sceneTime = sceneTimeOf(timing.presentationTimeStamp);
      frame.frameDuration = 1 / anchor_.frameRate;
    }
    auto picture = pool_->createPixelBuffer();
    if (!picture) return tl::unexpected(picture.error());
    if (auto drawn = scene_->render(**picture, frame); !drawn) return tl::unexpected(drawn.error());
    return SampleBuffer::createImage(std::move(*picture), timing);
  }

  const std::shared_ptr<VirtualScene> scene_;
  const bool startsScene_;  // a file is seen from its beginning
  std::shared_ptr<PixelBufferPool> pool_;
  mutable std::mutex mutex_;
  VirtualFrame lens_;  // how the controls stand
  Anchor anchor_;
  MediaTime start_;
  double sceneStart_ = 0;
  std::uint64_t nextNumber_ = 0;  // of the frame that is due next
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
