#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "TavrelBase/Log/Private/LimitedReports.h"
#include "TavrelBase/Log/Private/LogBacklog.h"
#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

/// A logger as the dispatcher knows it.
struct TavrelDDLoggerNode {
  TavrelDDLoggerNode(std::shared_ptr<TavrelDDLogger> newLogger, std::shared_ptr<DispatchQueue> queue, unsigned newLevel)
      : logger(std::move(newLogger)),
        loggerQueue(std::move(queue)),
        writesThrough(logger->writesThrough()),
        level(newLevel) {}

  std::shared_ptr<TavrelDDLogger> logger;
  std::shared_ptr<DispatchQueue> loggerQueue;
  const bool writesThrough;
  std::atomic<unsigned> level;  // 0 once it was removed
  LimitedReports failures{"TavrelDDLog: the logger failed too often, no more of its failures will be reported."};

  bool admits(const LogEntry& entry) const {
    return (level & entry.message().flag()) != 0 && !(writesThrough && entry.isWrittenThrough);
  }
  /// Calls `operation` of the logger; an exception goes to the console.
  void guarded(void (*operation)(TavrelDDLogger& logger, const TavrelDDLogMessage* message),
               const TavrelDDLogMessage* message = nullptr);
};

/// The list of loggers and the hand-over to them. Logging queue only, but for what says otherwise.
class LogFanOut {
 public:
  using Nodes = std::vector<std::shared_ptr<TavrelDDLoggerNode>>;

  /// `_numProcessors` chooses between the parallel and the serial hand-over.
  LogFanOut(unsigned numProcessors, LogBacklog& backlog) : _numProcessors(numProcessors), backlog_(backlog) {}

  void add(std::shared_ptr<TavrelDDLogger> logger, unsigned level);
  /// No logger means all.
  void remove(const TavrelDDLogger* logger);
  const Nodes& loggers() const { return _loggers; }
  /// Hands records over and returns when all are written. Entries must be records.
  void write(std::span<const LogEntry> entries);
  void flush();

  /// Has the loggers that write through write a record on the calling thread, in the place of their queues; all or none
  /// of them. False when that would take long, and then for a while, or when they do not admit it. Any thread.
  bool writeThrough(const LogEntry& entry);
  /// Whether a record is of interest to loggers that write through, or to the others. Any thread.
  bool mayWriteThrough(const LogEntry& entry) const { return (throughFlags_ & entry.message().flag()) != 0; }
  bool isQueued(const LogEntry& entry) const { return (queuedFlags_ & entry.message().flag()) != 0; }

  /// Around `fork`.
  void lock() { throughMutex_.lock(); }
  void unlock() { throughMutex_.unlock(); }

 private:
  /// The nodes that share one queue: they write one after the other.
  struct Lane {
    std::shared_ptr<DispatchQueue> queue;
    Nodes nodes;

    void write(const LogEntry& entry) const;
    void finishHandOver() const;
  };
  using Lanes = std::vector<Lane>;

  static void join(Lanes& lanes, const std::shared_ptr<TavrelDDLoggerNode>& node);
  static bool writeThrough(std::span<const Lane> lanes, const LogEntry& entry);
  void didChange();
  Lanes lanesFor(std::span<const LogEntry> entries) const;
  void writeToOne(const Lane& lane, std::span<const LogEntry> entries);
  void writeInParallel(const Lanes& lanes, std::span<const LogEntry> entries);
  void writeOneAfterTheOther(std::span<const LogEntry> entries);

  const unsigned _numProcessors;
  LogBacklog& backlog_;
  Nodes _loggers;
  std::atomic<unsigned> throughFlags_ = 0;
  std::atomic<unsigned> queuedFlags_ = 0;
  std::atomic<std::int64_t> slowUntil_ = 0;  // in milliseconds
  std::mutex throughMutex_;
  std::shared_ptr<const Lanes> throughLanes_ = std::make_shared<Lanes>();
};

}  // namespace tavrel
