#pragma once

#include <memory>
#include <utility>

#include "GPUImage/Private/SharedValue.h"

namespace tavrel {

/// A `std::function` that any thread may replace, also while another one is inside it.
template <typename Function>
class SharedCallback {
 public:
  void set(Function function) {
    callback_.set(function ? std::make_shared<const Function>(std::move(function)) : nullptr);
  }
  /// The one in force; nullptr without one. Shared, not copied: it may keep count of something.
  std::shared_ptr<const Function> get() const { return callback_.get(); }
  /// Empty without one.
  Function copy() const {
    const auto callback = get();
    return callback ? *callback : Function();
  }
  explicit operator bool() const { return get() != nullptr; }

 private:
  SharedValue<std::shared_ptr<const Function>> callback_;
};

}  // namespace tavrel
