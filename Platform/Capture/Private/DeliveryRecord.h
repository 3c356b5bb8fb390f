#pragma once

#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

#include "Platform/Capture/CaptureDelivery.h"

namespace tavrel {

/// What a driver delivers, or delivered last, noted on its capture thread and read on any.
class DeliveryRecord {
 public:
  void begin(CaptureDelivery delivery) {
    const std::lock_guard lock(mutex_);
    delivery_ = std::move(delivery);
  }
  template <typename Value>
  void note(Value CaptureDelivery::*what, std::type_identity_t<Value> value) {
    const std::lock_guard lock(mutex_);
    if (!delivery_) return;
    Value& noted = (*delivery_).*what;
    if (noted != value) noted = std::move(value);
  }
  std::optional<CaptureDelivery> get() const {
    const std::lock_guard lock(mutex_);
    return delivery_;
  }

 private:
  mutable std::mutex mutex_;
  std::optional<CaptureDelivery> delivery_;
};

}  // namespace tavrel
