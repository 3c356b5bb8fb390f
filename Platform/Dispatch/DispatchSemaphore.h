#pragma once

#include <chrono>
#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Counting semaphore. Unlike a mutex it may be taken on one thread and given back on another.
class TAVREL_API DispatchSemaphore {
 public:
  explicit DispatchSemaphore(long count);
  DispatchSemaphore(const DispatchSemaphore&) = delete;
  DispatchSemaphore& operator=(const DispatchSemaphore&) = delete;
  ~DispatchSemaphore();

  void wait();
  /// False when none was available in time.
  bool wait(std::chrono::nanoseconds timeout);
  /// Takes one without waiting; false when none is available.
  bool tryWait();
  void signal();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
