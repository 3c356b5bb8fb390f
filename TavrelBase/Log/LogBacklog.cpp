#include <utility>

#include "TavrelBase/Log/Private/LogBacklog.h"

namespace tavrel {

LogBacklog::Push LogBacklog::push(LogEntry& entry, bool mayWait) {
  std::unique_lock lock(mutex_);
  if (entry.takesRoom && mayWait && !hasRoom(capacity_)) {
    // Announced before the room is looked at again: `didWrite` makes room before it looks for blocked callers.
    ++blockedCallers_;
    roomAppeared_.wait(lock, [this] { return isClosed_ || hasRoom(capacity_); });
    --blockedCallers_;
  }
  if (isClosed_) return Push::closed;
  if (entry.takesRoom) {
    if (!mayWait && !hasRoom(2 * capacity_)) return Push::full;
    ++accepted_;
  }
  waiting_.push_back(std::move(entry));
  return std::exchange(isWorking_, true) ? Push::accepted : Push::acceptedAndIdle;
}

void LogBacklog::pushIdle(LogEntry&& entry) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(entry));
}

bool LogBacklog::beginWork() {
  const std::lock_guard lock(mutex_);
  return !waiting_.empty() && !std::exchange(isWorking_, true);
}

void LogBacklog::take(std::vector<LogEntry>& entries) {
  const std::lock_guard lock(mutex_);
  entries.swap(waiting_);
}

bool LogBacklog::continueWork() {
  const std::lock_guard lock(mutex_);
  isWorking_ = !waiting_.empty();
  return isWorking_;
}

void LogBacklog::didWrite() {
  ++written_;
  if (blockedCallers_.load() == 0) return;
  const std::lock_guard lock(mutex_);
  roomAppeared_.notify_one();
}

void LogBacklog::close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
  roomAppeared_.notify_all();
}

}  // namespace tavrel
