#include "Platform/Dispatch/RunLoop.h"

#include <sys/types.h>
#include <unistd.h>

#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/Private/CurrentQueue.h"
#include "Platform/Dispatch/Private/DispatchRuntime.h"

namespace tavrel {
namespace {

constexpr auto kForever = std::chrono::hours(24 * 365);

}  // namespace

RunLoop& RunLoop::main() {
  static auto* loop = new RunLoop;
  return *loop;
}

void RunLoop::run() {
  runFor(kForever);
}

void RunLoop::runFor(std::chrono::nanoseconds duration) {
  const auto deadline = std::chrono::steady_clock::now() + duration;
  while (!stopped_) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::nanoseconds::zero()) break;
    runOne(left);
  }
  stopped_ = false;
}

bool RunLoop::runOne(std::chrono::nanoseconds timeout) {
  asio::io_context& context = *DispatchRuntime::shared().mainContext();
  const CurrentQueue scope(DispatchQueue::main().get());
  if (context.stopped()) context.restart();
  // The guard keeps the loop waiting while the queue is empty.
  const auto guard = asio::make_work_guard(context);
  return context.run_one_for(timeout) > 0;
}

void RunLoop::stop() {
  DispatchQueue::main()->async([this] { stopped_ = true; });
}

int RunLoop::fileDescriptor() {
  return DispatchRuntime::shared().mainFileDescriptor();
}

int RunLoop::drain() {
  DispatchRuntime& runtime = DispatchRuntime::shared();
  // Cleared first: a block that is submitted while the loop drains makes the descriptor readable again.
  runtime.clearMainWakeUp();
  const CurrentQueue scope(DispatchQueue::main().get());
  asio::io_context& context = *runtime.mainContext();
  if (context.stopped()) context.restart();
  return static_cast<int>(context.poll());
}

bool RunLoop::isMainThread() {
  return gettid() == getpid();
}

}  // namespace tavrel
