#include "Platform/Dispatch/RunLoop.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/Private/CurrentQueue.h"
#include "Platform/Dispatch/Private/DispatchRuntime.h"
#include "Platform/Foundation/Deadline.h"
#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {
namespace {

/// asio adds what it is given to the time, so that it must not be too long.
constexpr std::chrono::nanoseconds kLongestWait = std::chrono::hours(1);

/// The main queue's context, ready to run. While the process ends no other thread may return from the loop: it could
/// leave `main`, and call `exit` a second time.
asio::io_context& preparedContext() {
  if (ProcessEnd::hasBegun() && !ProcessEnd::isOnEndingThread()) ProcessEnd::standStill();
  asio::io_context& context = DispatchRuntime::shared().mainWorker()->context();
  if (context.stopped()) context.restart();
  return context;
}

}  // namespace

RunLoop& RunLoop::main() {
  static auto* loop = new RunLoop;
  return *loop;
}

void RunLoop::run() { runFor(std::chrono::nanoseconds::max()); }

void RunLoop::runFor(std::chrono::nanoseconds duration) {
  ++runs_;
  runUntil([this] { return isStopped_; }, duration, kLongestWait);
  --runs_;
  isStopped_ = false;
}

bool RunLoop::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds duration,
                       std::chrono::nanoseconds longestStep) {
  const auto deadline = deadlineAfter(duration);
  while (!done()) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::nanoseconds::zero()) return false;
    runOne(std::min<std::chrono::nanoseconds>(left, longestStep));
  }
  return true;
}

void RunLoop::runOne(std::chrono::nanoseconds timeout) {
  asio::io_context& context = preparedContext();
  const CurrentQueue scope(DispatchQueue::main().get());
  // The guard keeps the loop waiting while the queue is empty.
  const auto guard = asio::make_work_guard(context);
  context.run_one_for(timeout);
}

void RunLoop::stop() {
  DispatchQueue::main()->async([this] { isStopped_ = runs_ > 0; });
}

int RunLoop::fileDescriptor() { return DispatchRuntime::shared().mainFileDescriptor(); }

int RunLoop::drain() {
  // Cleared first: a block that is submitted while the loop drains makes the descriptor readable again.
  DispatchRuntime::shared().clearMainWakeUp();
  asio::io_context& context = preparedContext();
  const CurrentQueue scope(DispatchQueue::main().get());
  // Behind the blocks that wait now, before those that they submit.
  bool isDrained = false;
  asio::post(context, [&isDrained] { isDrained = true; });
  int blocks = -1;
  while (!isDrained && context.poll_one() > 0) ++blocks;
  return blocks;
}

bool RunLoop::isMainThread() { return gettid() == getpid(); }

}  // namespace tavrel
