#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <span>
#include <variant>
#include <vector>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "TavrelBase/Log/TavrelDDLogMessage.h"

namespace tavrel {

/// What waits for the logging queue: a record, or bookkeeping that keeps its place between records.
struct LogEntry {
  using Operation = std::function<void()>;

  std::variant<TavrelDDLogMessage, Operation> content;
  DispatchSemaphore* done = nullptr;  ///< signalled afterwards, for a caller that waits
  bool takesRoom = false;             ///< a record that counts in the backlog
  bool isWrittenThrough = false;      ///< the loggers that write through have it already
  bool holdsUp = false;               ///< later records must not be written through before it is done

  bool isMessage() const { return content.index() == 0; }
  /// Keeps memory for a later record at most.
  void letGo();
  const TavrelDDLogMessage& message() const { return *std::get_if<0>(&content); }
};

/// The bounded hand-over from all threads to the logging queue. Entries gather in one vector while the logging queue
/// works on another, so that a call costs a short lock and the logging queue is woken once for many.
class LogBacklog {
 public:
  enum class Push { accepted, acceptedAndIdle, full, closed };

  enum class Work { none, oneBatch, untilIdle };

  explicit LogBacklog(std::size_t capacity) : capacity_(capacity), step_(capacity / 4) {}

  /// Adds an entry, which is moved from when it is accepted. A record waits for room when `mayWait`, and otherwise may
  /// exceed the capacity up to its double. After `acceptedAndIdle` the caller must see to it that the logging queue
  /// takes what is there.
  /// `isWaitedFor`: whether a logger that writes through waits for this record here.
  Push push(LogEntry& entry, bool mayWait, bool isWaitedFor);
  /// Adds an entry that waits for the next `push`.
  void pushIdle(LogEntry&& entry);
  /// What the caller must submit to the logging queue, so that all entries are taken before blocks that it submits
  /// next: the work on one batch, or, where none is under way, work until there is no more.
  Work hurry();

  /// Exchanges `entries` for what waits, and returns how many those are; the rest is room whose memory later entries
  /// use again, so that records need none from one thread that another gives back. Logging queue only.
  std::span<LogEntry> take(std::vector<LogEntry>& entries);
  /// After work: waits a moment for more, unless a caller waits or much has come already. True when there is more,
  /// which must then be taken; otherwise the next push reports idleness. Logging queue only.
  bool continueWork(bool lingers = true);
  /// An entry is done, for the caller that waits for it too. Any thread.
  void didFinish(const LogEntry& entry);
  /// The loggers have handed over everything that is done. Logging queue only.
  void didHandOver() { handedOver_ = written_.load(); }
  /// Returns when nothing holds up what is to be written through; false when something does for longer.
  bool waitUntilCaughtUp(std::chrono::milliseconds patience);
  /// Nothing waits that may change who admits a record, and the process is not ending.
  bool isSettled() const { return holdingUp_ == 0 && !isClosed_; }
  /// How many records were accepted and not yet written; one more while loggers gather what is. Takes no lock: any
  /// thread, signal handlers too.
  std::size_t unfinished() const { return unwritten() + (handedOver_ == written_ ? 0 : 1); }
  /// Refuses everything from now on and wakes those who wait for room.
  void close();

  /// Around `fork`. The child's backlog holds the bookkeeping only: the records are the parent's.
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  void renew();

 private:
  std::size_t unwritten() const { return accepted_.load() - written_.load(); }
  bool hasRoom(std::size_t room) const { return unwritten() < room; }
  void enqueue(LogEntry&& entry);

  const std::size_t capacity_;
  const std::size_t step_;  // so many records are worth waking a thread
  std::mutex mutex_;
  std::condition_variable roomAppeared_;
  std::condition_variable moreArrived_;
  std::condition_variable caughtUp_;
  std::vector<LogEntry> waiting_;
  std::size_t waitingCount_ = 0;
  std::atomic<std::size_t> accepted_ = 0;
  bool isWorking_ = false;
  bool isLingering_ = false;
  bool hasUrgent_ = false;  // a caller waits for one of the entries
  std::atomic<bool> isClosed_ = false;
  std::atomic<std::size_t> written_ = 0;
  std::atomic<std::size_t> handedOver_ = 0;
  std::atomic<unsigned> blockedCallers_ = 0;
  std::atomic<unsigned> holdingUp_ = 0;
};

}  // namespace tavrel
