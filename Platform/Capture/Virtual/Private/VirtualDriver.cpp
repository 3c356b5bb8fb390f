#include <fmt/format.h>
#include <pthread.h>

#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"
#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {
namespace {

constexpr std::int64_t kSceneSeconds = 60;

}  // namespace

CaptureCapabilities VirtualDriver::capabilities() const {
  if (description_.mediaType != MediaType::video) return {};
  const VirtualCaptureSystem::Support support = faults().support;
  CaptureCapabilities capabilities;
  capabilities.torchModes = {true, support.torch, support.torch};
  capabilities.flashModes = {true, support.flash, support.flash};
  std::copy(std::begin(support.focusModes), std::end(support.focusModes), capabilities.focusModes.begin());
  std::copy(std::begin(support.exposureModes), std::end(support.exposureModes), capabilities.exposureModes.begin());
  capabilities.focusPoint = support.focusPoint;
  capabilities.exposurePoint = support.exposurePoint;
  capabilities.zoom = support.zoom;
  return capabilities;
}

VirtualDriver::Faults VirtualDriver::faults() const {
  const std::lock_guard lock(mutex_);
  return faults_;
}

Expected<void> VirtualDriver::checkAvailable() {
  if (auto error = faults().inputError) return tl::unexpected(std::move(*error));
  return {};
}

Expected<void> VirtualDriver::checkConfigurable() {
  if (auto error = faults().lockError) return tl::unexpected(std::move(*error));
  return {};
}

bool VirtualDriver::isRealTime() const {
  const std::lock_guard lock(mutex_);
  return (sink_ ? clock_ : CaptureClock::current())->isRealTime();
}

void VirtualDriver::fail(Error error) {
  std::shared_ptr<CaptureSink> sink;
  {
    const std::lock_guard lock(mutex_);
    sink = sink_;
  }
  if (sink) sink->didFail(std::move(error));
}

bool VirtualDriver::isOpen() const {
  const std::lock_guard lock(mutex_);
  return sink_ != nullptr;
}

Expected<void> VirtualDriver::open(CaptureRun run) {
  {
    const std::lock_guard lock(mutex_);
    if (sink_)
      return failure(CaptureErrorCode::busy, fmt::format("{} is used by another session", description_.localizedName));
    if (faults_.openError) return tl::unexpected(*faults_.openError);
    sink_ = run.sink;
    clock_ = CaptureClock::current();
    failureWasLogged_ = false;
  }
  warmUp(run);
  const auto prepared = prepare(run, clock_->now());
  const std::lock_guard lock(mutex_);
  if (prepared) {
    const bool isCamera = description_.mediaType == MediaType::video;
    delivery_.begin({.format = isCamera ? "BGRA" : "F32",
                     .dimensions = run.format->dimensions,
                     .framesPerSecond = isCamera ? run.frameRate : 0,
                     .memory = "process",
                     .isStamped = true});
    const auto attendee = clock_->attach();
    thread_ = std::jthread([this, attendee](const std::stop_token& stop) { loop(stop, attendee); });
  } else {
    sink_ = nullptr;
  }
  return prepared;
}

void VirtualDriver::close() {
  std::jthread thread;
  {
    const std::lock_guard lock(mutex_);
    thread.swap(thread_);
  }
  if (!thread.joinable()) return;
  thread.request_stop();
  thread.join();
  const std::lock_guard lock(mutex_);
  sink_ = nullptr;
}

void VirtualDriver::loop(const std::stop_token& stop, CaptureClock::Attendee attendee) {
  pthread_setname_np(pthread_self(), threadName_);
  const MediaTime latency = MediaTime::fromSeconds(faults().latency, CaptureClock::kTimescale);
  for (std::uint64_t number = 0; clock_->waitUntil(dueTime(number) + latency, stop, attendee); ++number) {
    if (stop.stop_requested()) break;
    const bool isLate = clock_->isRealTime() && clock_->now() >= dueTime(number + patience_) + latency;
    if (!isLate && capture(number)) continue;
    if (const auto timing = timingOfDrop(number)) sink_->didDrop(*timing);
  }
  clock_->detach(attendee);
}

/// False when there is no such sample.
bool VirtualDriver::capture(std::uint64_t number) {
  auto made = sample(number);
  if (!made) {
    if (!std::exchange(failureWasLogged_, true)) {
      ConsoleLog::write("{}: {}", description_.localizedName, made.error().description);
    }
    return false;
  }
  if (!faults().isStalled) sink_->didCapture(std::move(*made));
  return true;
}

double VirtualDriver::sceneTimeAt(const MediaTime& time) {
  const MediaTime exact = time.convertedToTimescale(CaptureClock::kTimescale);
  return MediaTime::make(exact.value % (kSceneSeconds * CaptureClock::kTimescale), CaptureClock::kTimescale).seconds();
}

}  // namespace tavrel
