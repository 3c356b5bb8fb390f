#include <fmt/format.h>

#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"

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
  return capabilities;
}

VirtualDriver::Faults VirtualDriver::faults() const {
  const std::lock_guard lock(mutex_);
  return faults_;
}

bool VirtualDriver::isStalled() const {
  const std::lock_guard lock(mutex_);
  return faults_.isStalled;
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
  return !clock_ || clock_->isRealTime();
}

void VirtualDriver::fail(Error error) {
  std::shared_ptr<CaptureSink> sink;
  {
    const std::lock_guard lock(mutex_);
    sink = sink_;
  }
  if (sink) sink->didFail(std::move(error));
}

Expected<std::shared_ptr<CaptureClock>> VirtualDriver::begin(std::shared_ptr<CaptureSink> sink) {
  const std::lock_guard lock(mutex_);
  if (sink_)
    return failure(CaptureErrorCode::busy, fmt::format("{} is used by another session", description_.localizedName));
  if (faults_.openError) return tl::unexpected(*faults_.openError);
  sink_ = std::move(sink);
  clock_ = CaptureClock::current();
  return clock_;
}

void VirtualDriver::end() {
  const std::lock_guard lock(mutex_);
  sink_ = nullptr;
}

double VirtualDriver::sceneTimeAt(const MediaTime& time) {
  const MediaTime exact = time.convertedToTimescale(CaptureClock::kTimescale);
  return MediaTime::make(exact.value % (kSceneSeconds * CaptureClock::kTimescale), CaptureClock::kTimescale).seconds();
}

}  // namespace tavrel
