#include <chrono>
#include <utility>

#include "TavrelBase/Log/Private/LogBacklog.h"

namespace tavrel {
namespace {

/// How often a blocked caller looks for room by itself. Waking a caller for each record that is written would cost more
/// than the record: callers are woken for many at a time, and a slow logger does not hold up those for whom there is
/// room.
constexpr std::chrono::milliseconds kLookAgain(1);

/// How long the logging queue waits for more before it sleeps. To wake it costs a caller more than ten calls without
/// that, and few records at a time are dear to write.
constexpr std::chrono::milliseconds kLinger(1);

}  // namespace

void LogEntry::letGo() {
  constexpr std::size_t kLargestKept = 1024;
  if (!isMessage() || message().message().size() > kLargestKept) content.emplace<Operation>();
}

void LogBacklog::enqueue(LogEntry&& entry) {
  if (waitingCount_ < waiting_.size()) {
    waiting_[waitingCount_] = std::move(entry);
  } else {
    waiting_.push_back(std::move(entry));
  }
  ++waitingCount_;
}

LogBacklog::Push LogBacklog::push(LogEntry& entry, bool mayWait, bool isWaitedFor) {
  std::unique_lock lock(mutex_);
  if (entry.takesRoom && mayWait && !hasRoom(capacity_)) {
    ++blockedCallers_;
    while (!isClosed_ && !hasRoom(capacity_)) roomAppeared_.wait_for(lock, kLookAgain);
    --blockedCallers_;
  }
  if (isClosed_) return Push::closed;
  if (entry.takesRoom) {
    if (!mayWait && !hasRoom(2 * capacity_)) return Push::full;
    ++accepted_;
  }
  entry.holdsUp = !entry.isWrittenThrough && (isWaitedFor || !entry.isMessage() || holdingUp_ > 0);
  if (entry.holdsUp) ++holdingUp_;
  hasUrgent_ = hasUrgent_ || entry.done || entry.holdsUp;
  enqueue(std::move(entry));
  if (isLingering_ && (hasUrgent_ || waitingCount_ >= step_)) {
    isLingering_ = false;
    moreArrived_.notify_one();
  }
  return std::exchange(isWorking_, true) ? Push::accepted : Push::acceptedAndIdle;
}

void LogBacklog::pushIdle(LogEntry&& entry) {
  const std::lock_guard lock(mutex_);
  entry.holdsUp = true;
  ++holdingUp_;
  enqueue(std::move(entry));
}

LogBacklog::Work LogBacklog::hurry() {
  const std::lock_guard lock(mutex_);
  if (waitingCount_ == 0) return Work::none;
  hasUrgent_ = true;
  if (std::exchange(isLingering_, false)) moreArrived_.notify_one();
  return std::exchange(isWorking_, true) ? Work::oneBatch : Work::untilIdle;
}

std::span<LogEntry> LogBacklog::take(std::vector<LogEntry>& entries) {
  const std::lock_guard lock(mutex_);
  entries.swap(waiting_);
  hasUrgent_ = false;
  return std::span(entries).first(std::exchange(waitingCount_, 0));
}

bool LogBacklog::continueWork(bool lingers) {
  std::unique_lock lock(mutex_);
  if (blockedCallers_ > 0) roomAppeared_.notify_all();
  isLingering_ = lingers && !isClosed_ && !hasUrgent_ && waitingCount_ < step_;
  moreArrived_.wait_for(lock, kLinger, [this] { return !isLingering_; });
  isLingering_ = false;
  isWorking_ = waitingCount_ > 0;
  return isWorking_;
}

void LogBacklog::didFinish(const LogEntry& entry) {
  if (entry.takesRoom && ++written_ % step_ == 0 && blockedCallers_.load() > 0) {
    const std::lock_guard lock(mutex_);
    roomAppeared_.notify_all();
  }
  if (entry.holdsUp && --holdingUp_ == 0) {
    const std::lock_guard lock(mutex_);
    caughtUp_.notify_all();
  }
  // Last, since the caller may log again at once.
  if (entry.done) entry.done->signal();
}

bool LogBacklog::waitUntilCaughtUp(std::chrono::milliseconds patience) {
  if (holdingUp_ == 0) return true;
  std::unique_lock lock(mutex_);
  if (!isWorking_) return false;  // bookkeeping that waits for the first record
  return caughtUp_.wait_for(lock, patience, [this] { return holdingUp_ == 0; });
}

void LogBacklog::renew() {
  std::vector<LogEntry> kept = std::move(waiting_);
  const std::size_t count = waitingCount_;
  const std::size_t capacity = capacity_;
  const bool isClosed = isClosed_;
  // Not destroyed: threads that the child does not have may wait in it.
  new (this) LogBacklog(capacity);
  isClosed_ = isClosed;
  for (LogEntry& entry : std::span(kept).first(count)) {
    if (!entry.isMessage()) pushIdle({std::move(entry.content)});
  }
}

void LogBacklog::close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
  isLingering_ = false;
  moreArrived_.notify_all();
  roomAppeared_.notify_all();
}

}  // namespace tavrel
