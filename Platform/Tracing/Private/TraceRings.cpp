#include "Platform/Tracing/Private/TraceRings.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tavrel {
namespace {

struct Rings {
  std::mutex mutex;
  std::vector<std::shared_ptr<TraceRing>> rings;
  std::uint64_t lostByEndedThreads = 0;
};

// Never destroyed: threads record until the process ends.
Rings& all() {
  static auto* const instance = new Rings;
  return *instance;
}

constexpr std::size_t kLongestThreadName = 47;
// Without destructors: a thread may record while it takes its own variables down.
thread_local std::array<char, kLongestThreadName + 1> threadName{};
thread_local TraceRing* threadRing = nullptr;

struct RingRelease {
  ~RingRelease() {
    if (TraceRing* const ring = std::exchange(threadRing, nullptr)) ring->isEnded = true;
  }
};

std::string nameOfThisThread() {
  if (threadName[0] != 0) return threadName.data();
  if (gettid() == getpid()) return "main";
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

TraceRing& ringOfThisThread() {
  if (threadRing) return *threadRing;
  thread_local const RingRelease release;
  static_cast<void>(release);
  auto ring = std::make_shared<TraceRing>(nameOfThisThread());
  threadRing = ring.get();
  const std::lock_guard lock(all().mutex);
  all().rings.push_back(std::move(ring));
  return *threadRing;
}

}  // namespace

void TraceRings::push(const TraceEvent& event) { ringOfThisThread().push(event); }

void TraceRings::forEach(const std::function<void(TraceRing&)>& action) {
  std::vector<std::shared_ptr<TraceRing>> rings;
  {
    const std::lock_guard lock(all().mutex);
    rings = all().rings;
  }
  for (const auto& ring : rings) {
    const bool isEnded = ring->isEnded;
    action(*ring);
    if (!isEnded) continue;
    const std::lock_guard lock(all().mutex);
    all().lostByEndedThreads += ring->lost;
    std::erase(all().rings, ring);
  }
}

std::uint64_t TraceRings::lostEvents() {
  const std::lock_guard lock(all().mutex);
  std::uint64_t lost = all().lostByEndedThreads;
  for (const auto& ring : all().rings) lost += ring->lost;
  return lost;
}

void TraceRings::clear() {
  forEach([](TraceRing& ring) {
    ring.drain([](const TraceEvent&) {});
    ring.lost = 0;
    ring.nameAgain();
  });
  const std::lock_guard lock(all().mutex);
  all().lostByEndedThreads = 0;
}

void TraceRings::nameThread(std::string_view name) {
  const std::size_t length = name.copy(threadName.data(), kLongestThreadName);
  threadName[length] = 0;
  if (threadRing) threadRing->setThreadName(std::string(name));
}

}  // namespace tavrel
