#include "Platform/Dispatch/Private/DispatchRuntime.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {

DispatchRuntime& DispatchRuntime::shared() {
  static auto* const runtime = new DispatchRuntime;
  return *runtime;
}

DispatchRuntime::DispatchRuntime()
    : mainFileDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), mainWorker_(makeWorker("main", 0, true)) {
  timerGuard_.emplace(timerContext_.get_executor());
  timerThread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "tavrel.timer");
    timerContext_.run();
  });
  ProcessEnd::at(ProcessEnd::Stage::endingThread, [] { DispatchWorker::leave(); });
  ProcessEnd::at(ProcessEnd::Stage::driver, [this] { closeWorkers(false); });
  ProcessEnd::at(ProcessEnd::Stage::queues, [this] {
    closeWorkers(true);
    joinEndingThreads();
  });
}

std::shared_ptr<DispatchWorker> DispatchRuntime::makeWorker(std::string label, std::size_t threads, bool usesDriver) {
  auto worker = std::make_shared<DispatchWorker>(std::move(label), threads, usesDriver);
  const std::lock_guard lock(mutex_);
  if (areAllClosed_ || (areDriversClosed_ && usesDriver)) worker->close();
  std::erase_if(workers_, [](const auto& weak) { return weak.expired(); });
  workers_.push_back(worker);
  return worker;
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

void DispatchRuntime::closeWorkers(bool all) {
  std::vector<std::shared_ptr<DispatchWorker>> closed;
  {
    const std::lock_guard lock(mutex_);
    (all ? areAllClosed_ : areDriversClosed_) = true;
    for (const auto& weak : workers_) {
      auto worker = weak.lock();
      if (!worker || (!all && !worker->usesDriver())) continue;
      worker->close();
      closed.push_back(std::move(worker));
    }
  }
  const auto isAtRest = [](const auto& worker) { return worker->isAtRest(); };
  while (!std::all_of(closed.begin(), closed.end(), isAtRest)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void DispatchRuntime::joinEndingThreads() {
  std::vector<std::thread> ending;
  {
    const std::lock_guard lock(mutex_);
    ending.swap(endingThreads_);
  }
  for (std::thread& thread : ending) thread.join();
}

}  // namespace tavrel
