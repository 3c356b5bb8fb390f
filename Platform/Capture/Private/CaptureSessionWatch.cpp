// How a session learns what becomes of its devices, and mends what it can.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Foundation/Notifications.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kWatchInterval(1);
/// A camera that delivers nothing for so long has frozen.
constexpr std::chrono::seconds kLongestSilence(4);

}  // namespace

void CaptureSessionCore::watch(unsigned runNumber) {
  CaptureSystem::shared().queue()->asyncAfter(kWatchInterval, [weak = weak_from_this(), runNumber] {
    const auto self = weak.lock();
    if (!self) return;
    const std::lock_guard operation(self->operation_);
    if (self->runNumber_ != runNumber) return;
    self->look();
    self->watch(runNumber);
  });
}

void CaptureSessionCore::look() {
  if (!isRunning_ || configurationDepth_ > 0) return;
  for (const MediaType mediaType : kMediaTypes) {
    Slot& slot = slots_[static_cast<std::size_t>(mediaType)];
    if (!slot.source) {
      const auto device = deviceOf(mediaType);
      if (device && device->isConnected()) refreshSlot(mediaType, slot);
    } else if (mediaType == MediaType::video && !slot.isOpening && slot.source->isRealTime() &&
               slot.source->silence() > kLongestSilence) {
      const auto& device = slot.source->device();
      const auto delivery = device->delivery();
      const std::string reason = delivery && !delivery->loss.empty() ? ": " + delivery->loss : "";
      fail(slot, makeError(CaptureErrorCode::deviceSilent,
                           fmt::format("{} has delivered no picture for {} seconds{}", device->localizedName(),
                                       kLongestSilence.count(), reason)));
    }
  }
}

void CaptureSessionCore::deviceFormatWasSet() {
  const std::lock_guard operation(operation_);
  {
    const std::lock_guard lock(state_);
    preset_ = kCaptureSessionPresetInputPriority;
  }
  refresh();
}

CaptureSessionCore::Slot* CaptureSessionCore::slotOf(const std::shared_ptr<CaptureSource>& source) {
  const auto found =
      std::find_if(slots_.begin(), slots_.end(), [&](const Slot& slot) { return slot.source == source; });
  return found != slots_.end() ? &*found : nullptr;
}

void CaptureSessionCore::deviceWentAway(const std::shared_ptr<CaptureDevice>& device) {
  CaptureSystem::shared().queue()->async([self = shared_from_this(), device] {
    const std::lock_guard operation(self->operation_);
    for (Slot& slot : self->slots_) {
      if (!slot.source || slot.source->device() != device) continue;
      self->fail(slot, unpluggedError(device->localizedName()));
    }
  });
}

void CaptureSessionCore::deviceCameBack() {
  CaptureSystem::shared().queue()->async([self = shared_from_this()] {
    const std::lock_guard operation(self->operation_);
    self->look();
  });
}

void CaptureSessionCore::sourceDelivers(const std::shared_ptr<CaptureSource>& source) {
  CaptureSystem::shared().queue()->async([self = shared_from_this(), source] {
    const std::lock_guard operation(self->operation_);
    Slot* slot = self->slotOf(source);
    if (!slot || !std::exchange(slot->hasFailed, false)) return;
    {
      const std::lock_guard lock(self->state_);
      self->runtimeError_.reset();
    }
    self->post(kCaptureSessionDidRecoverNotification);
  });
}

void CaptureSessionCore::sourceFailed(const std::shared_ptr<CaptureSource>& source, Error error) {
  CaptureSystem::shared().queue()->async([self = shared_from_this(), source, error = std::move(error)]() mutable {
    const std::lock_guard operation(self->operation_);
    if (Slot* slot = self->slotOf(source)) self->fail(*slot, std::move(error));
  });
}

}  // namespace tavrel
