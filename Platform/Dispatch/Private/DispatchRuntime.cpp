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
    : mainFileDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mainWorker_(makeWorker("main", 0, {.usesDriver = true})) {
  startTimers();
  registerEnd();
  // The stages registered for may have passed: whoever first asks for a queue now gets one that begins no blocks.
  if (ProcessEnd::hasBegun()) closeWorkers(true);
  ProcessEnd::watchForks();  // whose part comes first in the child
  pthread_atfork([] { shared().rest(); }, [] { shared().wake(); }, [] { shared().renew(); });
}

void DispatchRuntime::registerEnd() {
  ProcessEnd::at(ProcessEnd::Stage::endingThread, [] { DispatchWorker::leave(); });
  ProcessEnd::at(ProcessEnd::Stage::driver, [this] { closeWorkers(false); });
  ProcessEnd::at(ProcessEnd::Stage::queues, [this] {
    closeWorkers(true);
    joinEndingThreads();
  });
}

void DispatchRuntime::startTimers() {
  timerContext_ = new asio::io_context;
  std::thread([context = timerContext_] {
    pthread_setname_np(pthread_self(), "tavrel.timer");
    const auto guard = asio::make_work_guard(*context);
    context->run();
  }).detach();
}

void DispatchRuntime::rest() {
  constexpr std::chrono::seconds kPatience(1);
  constexpr std::chrono::milliseconds kPatienceOfEach(100);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (bool isResting = false; !isResting && std::chrono::steady_clock::now() < deadline;) {
    std::vector<std::shared_ptr<DispatchWorker>> workers;
    {
      const std::lock_guard lock(mutex_);
      for (const auto& weak : workers_) {
        if (auto worker = weak.lock(); worker && worker->forkRank() > 0) workers.push_back(std::move(worker));
      }
    }
    std::ranges::stable_sort(workers, {}, [](const auto& worker) { return worker->forkRank(); });
    // All or none of them, since blocks of the same rank may wait for each other.
    const auto isHeld = [&](const auto& worker) { return worker->tryHold(kPatienceOfEach); };
    const auto busy = std::ranges::find_if_not(workers, isHeld);
    isResting = busy == workers.end();
    workers.erase(busy, workers.end());
    if (isResting) {
      resting_ = std::move(workers);
    } else {
      for (const auto& worker : workers) worker->letGo();
    }
  }
  mutex_.lock();
}

void DispatchRuntime::wake() {
  for (const auto& worker : resting_) worker->letGo();
  resting_.clear();
  mutex_.unlock();
}

void DispatchRuntime::renew() {
  resting_.clear();
  for (const auto& weak : workers_) {
    if (const auto worker = weak.lock()) worker->renew();
  }
  // Never joined, detached or destroyed: the threads are not there, and their descriptors may be gone with their
  // stacks.
  static auto* const abandoned = new std::vector<std::thread>;
  std::ranges::move(endingThreads_, std::back_inserter(*abandoned));
  endingThreads_.clear();
  mutex_.unlock();
  mainFileDescriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);  // the other one wakes the parent
  startTimers();
  registerEnd();
}

std::shared_ptr<DispatchWorker> DispatchRuntime::makeWorker(std::string label, std::size_t threads,
                                                            DispatchQueueAttribute attribute) {
  auto worker = std::make_shared<DispatchWorker>(std::move(label), threads, attribute);
  const std::lock_guard lock(mutex_);
  if (areAllClosed_ || (areDriversClosed_ && attribute.usesDriver)) worker->close();
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
  auto timer = std::make_shared<asio::steady_timer>(*timerContext_, delay);
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
