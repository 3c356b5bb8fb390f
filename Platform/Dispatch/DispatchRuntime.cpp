#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Platform/Dispatch/Private/DispatchRuntime.h"

namespace tavrel {

DispatchRuntime& DispatchRuntime::shared() {
  static auto* runtime = [] {
    auto* created = new DispatchRuntime;
    std::atexit([] { shared().windUp(); });
    return created;
  }();
  return *runtime;
}

DispatchRuntime::DispatchRuntime() : mainFileDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  timerGuard_.emplace(timerContext_.get_executor());
  timerThread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "tavrel.timer");
    timerContext_.run();
  });
}

void DispatchRuntime::wakeMain() const {
  const std::uint64_t one = 1;
  // A full counter keeps the descriptor readable, which is all that matters.
  [[maybe_unused]] const auto written = write(mainFileDescriptor_, &one, sizeof one);
}

void DispatchRuntime::clearMainWakeUp() const {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto bytes = read(mainFileDescriptor_, &count, sizeof count);
}

void DispatchRuntime::runAfter(std::chrono::nanoseconds delay, std::function<void()> action) {
  auto timer = std::make_shared<asio::steady_timer>(timerContext_, delay);
  timer->async_wait([timer, action = std::move(action)](const asio::error_code& error) {
    if (!error) action();
  });
}

void DispatchRuntime::joinLater(std::thread thread) {
  const std::lock_guard lock(mutex_);
  endingThreads_.push_back(std::move(thread));
}

void DispatchRuntime::atExit(std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  exitActions_.push_back(std::move(action));
}

void DispatchRuntime::windUp() {
  // Actions may register further ones and end further threads, so each is taken out before it runs.
  for (;;) {
    std::function<void()> action;
    {
      const std::lock_guard lock(mutex_);
      if (exitActions_.empty()) break;
      action = std::move(exitActions_.back());
      exitActions_.pop_back();
    }
    action();
  }
  timerContext_.stop();
  timerThread_.join();
  std::vector<std::thread> ending;
  {
    const std::lock_guard lock(mutex_);
    ending.swap(endingThreads_);
  }
  for (std::thread& thread : ending) thread.join();
}

}  // namespace tavrel
