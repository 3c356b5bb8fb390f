#pragma once

#include <mutex>
#include <utility>

#include "Capture/Video/TavrelCameraConfiguration.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

/// What the caller of a camera wants, whether the device can do it or not. Any thread.
class CameraWishes {
 public:
  explicit CameraWishes(TavrelCameraConfiguration configuration) : configuration_(std::move(configuration)) {
    const TavrelCameraConfiguration defaults;
    const auto keepFinite = [&](auto... members) {
      ((configuration_.*members = isFinite(configuration_.*members) ? configuration_.*members : defaults.*members),
       ...);
    };
    using C = TavrelCameraConfiguration;
    keepFinite(&C::size, &C::preferredMinFrameRate, &C::preferredMaxFrameRate, &C::preferredVideoZoomFactor,
               &C::preferredFocusPointOfInterest, &C::preferredExposurePointOfInterest);
  }

  TavrelCameraConfiguration all() const {
    const std::lock_guard lock(mutex_);
    return configuration_;
  }
  template <typename Value>
  Value get(Value TavrelCameraConfiguration::*wish) const {
    const std::lock_guard lock(mutex_);
    return configuration_.*wish;
  }
  /// The value before.
  template <typename Value>
  Value set(Value TavrelCameraConfiguration::*wish, std::type_identity_t<Value> value) {
    const std::lock_guard lock(mutex_);
    if (!isFinite(value)) return configuration_.*wish;
    return std::exchange(configuration_.*wish, std::move(value));
  }

 private:
  mutable std::mutex mutex_;
  TavrelCameraConfiguration configuration_;
};

}  // namespace tavrel
