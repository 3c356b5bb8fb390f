#pragma once

#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// Makes a queue the calling thread's current one for as long as the scope lives.
class CurrentQueue {
 public:
  explicit CurrentQueue(DispatchQueue* queue) : outer_(std::exchange(slot(), queue)) {}
  CurrentQueue(const CurrentQueue&) = delete;
  CurrentQueue& operator=(const CurrentQueue&) = delete;
  ~CurrentQueue() { slot() = outer_; }

  static DispatchQueue*& slot() {
    // Looked at with each log call.
    [[gnu::tls_model("initial-exec")]] static thread_local DispatchQueue* queue = nullptr;
    return queue;
  }

 private:
  DispatchQueue* outer_;
};

}  // namespace tavrel
