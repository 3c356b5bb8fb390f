#pragma once

#include <chrono>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// A counting semaphore, which may be acquired on one thread and released on another.
class TAVREL_API DispatchSemaphore {
 public:
  explicit DispatchSemaphore(long count);
  DispatchSemaphore(const DispatchSemaphore&) = delete;
  DispatchSemaphore& operator=(const DispatchSemaphore&) = delete;
  ~DispatchSemaphore();

  void wait();
  /// False if no unit is available in time.
  bool wait(std::chrono::nanoseconds timeout);
  /// Takes a unit without waiting; false if none is available.
  bool tryWait();
  void signal();

 private:
  friend class DispatchQueue;
  struct Implementation;

  bool waitHolding(std::chrono::nanoseconds timeout);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
