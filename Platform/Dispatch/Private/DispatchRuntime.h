#pragma once

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tavrel {

/// What all queues share: the thread that waits for delays, the main queue's context and what must end with the
/// process. Created at first use, wound up by `atexit` and never destroyed, so that late destructors may still talk to
/// it.
class DispatchRuntime {
 public:
  static DispatchRuntime& shared();

  const std::shared_ptr<asio::io_context>& mainContext() const { return mainContext_; }
  /// Readable while the main queue has blocks.
  int mainFileDescriptor() const { return mainFileDescriptor_; }
  void wakeMain() const;
  void clearMainWakeUp() const;

  /// Calls `action` on the timer thread after `delay`; it must be short. Dropped when the process ends first.
  void runAfter(std::chrono::nanoseconds delay, std::function<void()> action);
  /// Joins `thread`, which is about to end, when the process ends or earlier.
  void joinLater(std::thread thread);
  /// Calls `action` when the process ends, last registered first.
  void atExit(std::function<void()> action);

 private:
  DispatchRuntime();
  void windUp();

  std::shared_ptr<asio::io_context> mainContext_ = std::make_shared<asio::io_context>();
  int mainFileDescriptor_ = -1;
  asio::io_context timerContext_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> timerGuard_;
  std::thread timerThread_;
  std::mutex mutex_;
  std::vector<std::thread> endingThreads_;
  std::vector<std::function<void()>> exitActions_;
};

}  // namespace tavrel
