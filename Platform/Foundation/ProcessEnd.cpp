#include "Platform/Foundation/ProcessEnd.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tavrel {
namespace {

using namespace std::chrono_literals;

struct StageRule {
  std::chrono::milliseconds limit;
  bool mustFinish = false;
  bool writes = false;  // and may take the time that those before have left over
};

/// In the order of `ProcessEnd::Stage`. Together they stay well under two seconds.
constexpr std::array<StageRule, 6> kStages = {{
    {.limit = 0ms},                        // endingThread
    {.limit = 300ms},                      // sources
    {.limit = 500ms, .mustFinish = true},  // driver
    {.limit = 200ms, .writes = true},      // trace
    {.limit = 300ms, .writes = true},      // log
    {.limit = 100ms},                      // queues
}};
constexpr std::chrono::milliseconds kFlushLimit = 100ms;

struct Registry {
  std::mutex mutex;
  std::array<std::vector<std::function<void()>>, kStages.size()> actions;
  bool isRegistered = false;
};

// Never destroyed, as everything that the end of the process goes through.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

std::atomic<pid_t> endingThread = 0;
std::atomic<pid_t> driversProcess = 0;
std::atomic<ProcessEnd::AssertionHandler> assertionHandler = nullptr;

bool hasActions(std::size_t stage) {
  const std::lock_guard lock(registry().mutex);
  return !registry().actions[stage].empty();
}

void runActions(std::size_t stage) {
  // Actions may register further ones, so each is taken out before it runs.
  for (;;) {
    std::function<void()> action;
    {
      const std::lock_guard lock(registry().mutex);
      auto& actions = registry().actions[stage];
      if (actions.empty()) return;
      action = std::move(actions.back());
      actions.pop_back();
    }
    action();
  }
}

/// Runs `action` on a thread of its own; false when it has not finished in time, and is left to itself.
bool runWithin(std::chrono::nanoseconds limit, std::function<void()> action) {
  auto task = std::make_shared<std::packaged_task<void()>>(std::move(action));
  const std::future<void> finished = task->get_future();
  std::thread thread;
  try {
    thread = std::thread([task] {
      pthread_setname_np(pthread_self(), "tavrel.end");
      (*task)();
    });
  } catch (const std::system_error&) {  // no thread to be had: without limits then
    (*task)();
    return true;
  }
  const bool isInTime = finished.wait_for(limit) == std::future_status::ready;
  if (isInTime) {
    thread.join();
  } else {
    thread.detach();
  }
  return isInTime;
}

void endProcess(int status, void*) {
  pid_t nobody = 0;
  if (!endingThread.compare_exchange_strong(nobody, gettid())) {
    // Registered several times; and another thread that calls `exit` meanwhile must not overtake.
    if (nobody == gettid()) return;
    ProcessEnd::standStill();
  }
  ProcessEnd::comeFirst();  // for such a thread
  runActions(0);
  // A forked child has none of its parent's driver's threads, for which that waits when it ends.
  bool mayGoOn = driversProcess == 0 || driversProcess == getpid();
  auto due = std::chrono::steady_clock::now();
  for (std::size_t stage = 1; stage < kStages.size(); ++stage) {
    const StageRule& rule = kStages[stage];
    due += rule.limit;
    const auto limit = rule.writes ? due - std::chrono::steady_clock::now() : rule.limit;
    const bool isInTime = !hasActions(stage) || runWithin(limit, [stage] { runActions(stage); });
    if (!isInTime && rule.mustFinish) mayGoOn = false;
  }
  if (mayGoOn) return;
  runWithin(kFlushLimit, [] { std::fflush(nullptr); });
  _exit(status);
}

struct ThreadWatch {
  bool isOn = false;
  ~ThreadWatch() {
    if (isOn) ProcessEnd::comeFirst();
  }
};
thread_local ThreadWatch threadWatch;

/// Looked up while the library is loaded: later, another thread may hold the loader's lock, and load a driver.
void (*const nextExit)(int) = reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "exit"));

[[maybe_unused]] const bool isLoaderWatched = (ProcessEnd::watchThisThread(), ProcessEnd::watchForks(), true);

}  // namespace

void ProcessEnd::at(Stage stage, std::function<void()> action) {
  const std::lock_guard lock(registry().mutex);
  if (!std::exchange(registry().isRegistered, true)) comeFirst();
  registry().actions[static_cast<std::size_t>(stage)].push_back(std::move(action));
}

void ProcessEnd::watchForks() {
  [[maybe_unused]] static const int registered =
      pthread_atfork([] { registry().mutex.lock(); }, [] { registry().mutex.unlock(); },
                     [] {
                       // Never destroyed: what they hold may want to wait for its threads.
                       static auto* const parents = new std::vector<decltype(Registry::actions)>;
                       parents->push_back(std::exchange(registry().actions, {}));
                       endingThread = 0;
                       registry().mutex.unlock();
                     });
}

void ProcessEnd::comeFirst() { on_exit(endProcess, nullptr); }

void ProcessEnd::noteDriver() {
  driversProcess = getpid();
  comeFirst();
}

void ProcessEnd::watchThisThread() { threadWatch.isOn = true; }

void ProcessEnd::stopWatchingThisThread() { threadWatch.isOn = false; }

void ProcessEnd::atFatalAssertion(AssertionHandler handler) { assertionHandler = handler; }

void ProcessEnd::tellFatalAssertion(std::string_view text) {
  if (const AssertionHandler handler = assertionHandler) handler(text);
}

bool ProcessEnd::hasBegun() { return endingThread != 0; }

bool ProcessEnd::isOnEndingThread() { return hasBegun() && endingThread == gettid(); }

void ProcessEnd::standStill() {
  for (;;) pause();
}

}  // namespace tavrel

/// In front of the C library's, on threads that are not watched too: loading a driver and compiling a shader register
/// the end of statics at any time, which must not come before that of the blocks that use them.
extern "C" [[gnu::visibility("default")]] void exit(int status) noexcept {
  tavrel::endProcess(status, nullptr);
  if (tavrel::nextExit) tavrel::nextExit(status);
  _exit(status);
}
