#include "Platform/Capture/Virtual/VirtualCamera.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/Private/PacedDelivery.h"
#include "Platform/Capture/Virtual/SyntheticScene.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/PixelBufferPool.h"

namespace tavrel {
namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr unsigned kFramesInFlight = 2;
/// The largest zoom and exposure factors.
constexpr double kStrongest = 100;

/// Written so that not-a-number becomes `least`.
double within(double least, double value, double most) { return std::min(most, std::max(least, value)); }

Expected<std::shared_ptr<VirtualScene>> sceneNamed(std::string_view name) {
  if (name == "front") return std::make_shared<SyntheticScene>(SyntheticScene::Position::front);
  if (name == "back") return std::make_shared<SyntheticScene>(SyntheticScene::Position::back);
  if (name.starts_with(kFilePrefix)) return FileScene::create(std::filesystem::path(name.substr(kFilePrefix.size())));
  return failure(CaptureErrorCode::noSuchDevice,
                 fmt::format("there is no virtual camera named \"{}\"; choose front, back or file:PATH", name));
}

/// Frame numbers on the time line: frame `number` is at `time`, the following ones in steps of 1 / frameRate, all of
/// them moved by `shift` seconds.
struct Anchor {
  std::uint64_t number = 0;
  MediaTime time;
  double frameRate = 0;
  double shift = 0;

  MediaTime timeOf(std::uint64_t wanted) const {
    if (wanted == number) return time;
    const double seconds = static_cast<double>(static_cast<std::int64_t>(wanted - number)) / frameRate + shift;
    return time + MediaTime::fromSeconds(seconds, CaptureClock::kTimescale);
  }
};

}  // namespace

struct VirtualCamera::Implementation {
  Implementation(std::shared_ptr<VirtualScene> usedScene, Configuration usedConfiguration,
                 std::shared_ptr<PixelBufferPool> usedPool)
      : scene(std::move(usedScene)), configuration(std::move(usedConfiguration)), pool(std::move(usedPool)) {
    anchor.frameRate = configuration.frameRate;
  }

  const std::shared_ptr<VirtualScene> scene;
  const Configuration configuration;
  const std::shared_ptr<PixelBufferPool> pool;

  mutable std::mutex mutex;
  Controls controls;
  Anchor anchor;
  MediaTime startTime;
  double sceneStart = 0;
  DropHandler dropHandler;
  std::uint64_t nextNumber = 0;  // the frame that is due next
  bool failureWasLogged = false;

  PacedDelivery delivery;  // last: its thread uses the rest

  void begin(MediaTime start, double sceneTime) {
    const std::lock_guard lock(mutex);
    startTime = start;
    sceneStart = sceneTime;
    anchor.number = 0;
    anchor.time = start;
    anchor.shift = 0;
    nextNumber = 0;
    failureWasLogged = false;
  }

  MediaTime timeOf(std::uint64_t number) const {
    const std::lock_guard lock(mutex);
    return anchor.timeOf(number);
  }

  /// With the mutex held.
  double sceneTimeOf(const MediaTime& time) const { return sceneStart + (time - startTime).seconds(); }

  PacedDelivery::Delivery produce(std::uint64_t number, const std::shared_ptr<Handler>& handler) {
    MediaTime time;
    VirtualFrame frame;
    {
      const std::lock_guard lock(mutex);
      nextNumber = number + 1;
      time = anchor.timeOf(number);
      frame = {static_cast<std::uint32_t>(number),
               sceneTimeOf(time),
               1 / anchor.frameRate,
               controls.torchLevel,
               controls.zoom,
               controls.focus,
               controls.exposure};
    }
    auto drawn = draw(frame);
    if (!drawn) {
      if (!std::exchange(failureWasLogged, true)) ConsoleLog::write("Virtual camera: {}", drawn.error().description);
      return nullptr;
    }
    return [handler, time, buffer = std::move(*drawn)] { (*handler)(buffer, time); };
  }

  Expected<std::shared_ptr<PixelBuffer>> draw(const VirtualFrame& frame) {
    auto buffer = pool->createPixelBuffer();
    if (!buffer) return buffer;
    const auto rendered = scene->render(**buffer, frame);
    if (!rendered) return tl::unexpected(rendered.error());
    return buffer;
  }
};

Expected<std::shared_ptr<VirtualCamera>> VirtualCamera::create(std::string_view name, Configuration configuration) {
  auto scene = sceneNamed(name);
  if (!scene) return tl::unexpected(scene.error());
  return create(std::move(*scene), std::move(configuration));
}

Expected<std::shared_ptr<VirtualCamera>> VirtualCamera::create(std::shared_ptr<VirtualScene> scene,
                                                               Configuration configuration) {
  if (!scene || !configuration.clock)
    return failure(CaptureErrorCode::invalidConfiguration, "a virtual camera needs a scene and a clock");
  if (configuration.width < 16 || configuration.height < 16) {
    return failure(CaptureErrorCode::invalidConfiguration,
                   fmt::format("a virtual camera cannot be {} by {} pixels; at least 16 by 16 are needed",
                               configuration.width, configuration.height));
  }
  if (!std::isfinite(configuration.frameRate) || configuration.frameRate <= 0) {
    return failure(CaptureErrorCode::invalidConfiguration,
                   fmt::format("a frame rate of {} is not possible; it must be above 0", configuration.frameRate));
  }
  auto pool = PixelBufferPool::create(configuration.width, configuration.height, PixelFormat::bgra32);
  if (!pool) return tl::unexpected(pool.error());
  return std::shared_ptr<VirtualCamera>(new VirtualCamera(
      std::make_unique<Implementation>(std::move(scene), std::move(configuration), std::move(*pool))));
}

VirtualCamera::VirtualCamera(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

VirtualCamera::~VirtualCamera() { stop(); }

const VirtualCamera::Configuration& VirtualCamera::configuration() const { return implementation_->configuration; }

void VirtualCamera::start(Handler handler, std::shared_ptr<DispatchQueue> queue, MediaTime startTime,
                          double sceneStart) {
  if (isRunning()) return;
  Implementation& camera = *implementation_;
  const MediaTime start = startTime.isNumeric() ? startTime : camera.configuration.clock->now();
  camera.begin(start.convertedToTimescale(CaptureClock::kTimescale), sceneStart);
  PacedDelivery::Plan plan;
  plan.threadName = "tavrel.vcam";
  plan.clock = camera.configuration.clock;
  plan.queue = std::move(queue);
  plan.maximumInFlight = kFramesInFlight;
  plan.dueTime = [&camera](std::uint64_t number) { return camera.timeOf(number); };
  plan.produce = [&camera, shared = std::make_shared<Handler>(std::move(handler))](std::uint64_t number) {
    return camera.produce(number, shared);
  };
  const std::lock_guard lock(camera.mutex);
  if (camera.dropHandler) {
    plan.drop = [&camera, dropHandler = camera.dropHandler](std::uint64_t number) {
      dropHandler(camera.timeOf(number));
    };
  }
  camera.delivery.start(std::move(plan));
}

void VirtualCamera::setDropHandler(DropHandler handler) {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->dropHandler = std::move(handler);
}

void VirtualCamera::stop() { implementation_->delivery.stop(); }

bool VirtualCamera::isRunning() const { return implementation_->delivery.isRunning(); }

void VirtualCamera::setControls(const Controls& controls) {
  const std::lock_guard lock(implementation_->mutex);
  Controls& kept = implementation_->controls;
  kept.torchLevel = within(0, controls.torchLevel, 1);
  kept.zoom = within(1, controls.zoom, kStrongest);
  kept.focus = within(0, controls.focus, 1);
  kept.exposure = within(0, controls.exposure, kStrongest);
}

VirtualCamera::Controls VirtualCamera::controls() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->controls;
}

void VirtualCamera::setFrameRate(double framesPerSecond) {
  if (!std::isfinite(framesPerSecond) || framesPerSecond <= 0) return;
  const std::lock_guard lock(implementation_->mutex);
  Anchor& anchor = implementation_->anchor;
  // The frame that is being waited for keeps its time. Those after it fall on the scene's seconds, as a flash does.
  if (anchor.time.isNumeric()) {
    anchor.time = anchor.timeOf(implementation_->nextNumber);
    anchor.number = implementation_->nextNumber;
    const double sceneTime = implementation_->sceneTimeOf(anchor.time);
    anchor.shift = std::round(sceneTime * framesPerSecond) / framesPerSecond - sceneTime;
  }
  anchor.frameRate = framesPerSecond;
}

double VirtualCamera::frameRate() const {
  const std::lock_guard lock(implementation_->mutex);
  return implementation_->anchor.frameRate;
}

std::uint64_t VirtualCamera::deliveredFrames() const { return implementation_->delivery.delivered(); }

std::uint64_t VirtualCamera::droppedFrames() const { return implementation_->delivery.dropped(); }

}  // namespace tavrel
