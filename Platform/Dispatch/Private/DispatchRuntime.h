#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Dispatch/Private/Asio.h"
#include "Platform/Dispatch/Private/DispatchWorker.h"

namespace tavrel {

/// What all queues share: the thread that waits for delays, the main queue's worker and what happens to all workers at
/// the end of the process. Created at first use and never destroyed, so that late destructors may still talk to it.
class DispatchRuntime {
 public:
  static DispatchRuntime& shared();

  std::shared_ptr<DispatchWorker> makeWorker(std::string label, std::size_t threads, DispatchQueueAttribute attribute);
  /// The views that the main thread draws stand on a driver too.
  const std::shared_ptr<DispatchWorker>& mainWorker() const { return mainWorker_; }
  /// Readable while the main queue has blocks.
  int mainFileDescriptor() const { return mainFileDescriptor_; }
  void wakeMain() const;
  void clearMainWakeUp() const;

  /// Calls `action` on the timer thread after `delay`; it must be short. Dropped when the process ends first.
  void runAfter(std::chrono::nanoseconds delay, std::function<void()> action);
  /// Joins `thread`, which is about to end, when the process ends.
  void joinLater(std::thread thread);

 private:
  DispatchRuntime();
  /// Lets no block begin any more in workers that use a driver, or in all, and returns when none is inside one.
  void closeWorkers(bool all);
  void joinEndingThreads();
  void registerEnd();
  void startTimers();
  /// Around `fork`: no block of the workers that rest in it runs.
  void rest();
  void wake();
  void renew();

  std::mutex mutex_;
  std::vector<std::shared_ptr<DispatchWorker>> resting_;
  std::vector<std::weak_ptr<DispatchWorker>> workers_;
  std::vector<std::thread> endingThreads_;
  bool areDriversClosed_ = false;
  bool areAllClosed_ = false;
  int mainFileDescriptor_ = -1;
  std::shared_ptr<DispatchWorker> mainWorker_;
  /// Never destroyed, since its thread ends with the process.
  asio::io_context* timerContext_ = nullptr;
};

}  // namespace tavrel
