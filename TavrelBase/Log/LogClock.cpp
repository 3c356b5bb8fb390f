#include "TavrelBase/Log/LogClock.h"

#include <atomic>

namespace tavrel {
namespace {

std::atomic<LogClock::Now> clockInUse = nullptr;

}  // namespace

LogClock::TimePoint LogClock::now() {
  const Now now = clockInUse.load();
  return now ? now() : std::chrono::system_clock::now();
}

void LogClock::set(Now now) { clockInUse = now; }

}  // namespace tavrel
