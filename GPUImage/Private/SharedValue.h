#pragma once

#include <mutex>
#include <utility>

namespace tavrel {

/// A value that any thread may read and replace. What it held before is let go outside the lock.
template <typename Value>
class SharedValue {
 public:
  SharedValue() = default;
  explicit SharedValue(Value value) : value_(std::move(value)) {}

  Value get() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }
  void set(Value newValue) { exchange(std::move(newValue)); }
  /// Returns what it held before.
  Value exchange(Value newValue) {
    const std::lock_guard lock(mutex_);
    return std::exchange(value_, std::move(newValue));
  }

 private:
  mutable std::mutex mutex_;
  Value value_{};
};

}  // namespace tavrel
