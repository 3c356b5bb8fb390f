#pragma once

#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "Platform/Dispatch/DispatchGroup.h"
#include "TavrelBase/Log/Private/LimitedReports.h"
#include "TavrelBase/Log/Private/LogBacklog.h"
#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

/// A logger as the dispatcher knows it.
struct TavrelDDLoggerNode {
  TavrelDDLoggerNode(std::shared_ptr<TavrelDDLogger> newLogger, std::shared_ptr<DispatchQueue> queue, unsigned newLevel)
      : logger(std::move(newLogger)), loggerQueue(std::move(queue)), level(newLevel) {}

  std::shared_ptr<TavrelDDLogger> logger;
  std::shared_ptr<DispatchQueue> loggerQueue;
  unsigned level;
  LimitedReports failures{"TavrelDDLog: the logger failed too often, no more of its failures will be reported."};

  bool admits(const TavrelDDLogMessage& message) const { return (level & message.flag()) != 0; }
  /// Calls `operation` of the logger; an exception goes to the console.
  void guarded(void (*operation)(TavrelDDLogger& logger, const TavrelDDLogMessage* message),
               const TavrelDDLogMessage* message = nullptr);
};

/// The list of loggers and the hand-over to them. Logging queue only.
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

 private:
  /// The nodes that share one queue: they write one after the other.
  struct Lane {
    std::shared_ptr<DispatchQueue> queue;
    Nodes nodes;

    void write(const TavrelDDLogMessage& message) const;
    void finishHandOver() const;
  };

  std::vector<Lane> lanesFor(std::span<const LogEntry> entries) const;
  void writeToOne(const Lane& lane, std::span<const LogEntry> entries);
  void writeInParallel(const std::vector<Lane>& lanes, std::span<const LogEntry> entries);
  void writeOneAfterTheOther(std::span<const LogEntry> entries);
  void didWrite(const LogEntry& entry);

  const unsigned _numProcessors;
  LogBacklog& backlog_;
  Nodes _loggers;
  DispatchGroup loggingGroup_;
};

}  // namespace tavrel
