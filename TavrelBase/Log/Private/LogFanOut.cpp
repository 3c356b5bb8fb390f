#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <exception>
#include <utility>

#include "Platform/Dispatch/DispatchGroup.h"
#include "TavrelBase/Log/Private/LogFanOut.h"
#include "TavrelBase/Log/Private/LogLockstep.h"
#include "TavrelBase/Log/Private/LogScope.h"

namespace tavrel {
namespace {

/// How long a caller waits for loggers that write through, and how long none tries again after it had to.
constexpr std::chrono::milliseconds kPatience(500);
constexpr std::chrono::milliseconds kSlowFor(1000);

std::int64_t coarseMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

/// Runs `block` on the queue, on this thread where it can be had.
template <typename Block>
void runOn(DispatchQueue& queue, Block&& block) {
  if (!queue.trySync(std::chrono::nanoseconds(0), block)) queue.sync(block);
}

}  // namespace

void TavrelDDLoggerNode::guarded(void (*operation)(TavrelDDLogger&, const TavrelDDLogMessage*),
                                 const TavrelDDLogMessage* message) {
  const LogScope scope;
  const auto report = [this](std::string_view reason) {
    failures.write(fmt::format("TavrelDDLog: logger \"{}\" failed: {}", logger->loggerName(), reason));
  };
  try {
    operation(*logger, message);
  } catch (const std::exception& exception) {
    report(exception.what());
  } catch (...) {
    report("unknown exception");
  }
}

void LogFanOut::Lane::write(const LogEntry& entry) const {
  for (const auto& node : nodes) {
    if (!node->admits(entry)) continue;
    node->guarded([](TavrelDDLogger& logger, const TavrelDDLogMessage* record) { logger.logMessage(*record); },
                  &entry.message());
  }
}

void LogFanOut::Lane::finishHandOver() const {
  for (const auto& node : nodes) {
    node->guarded([](TavrelDDLogger& logger, const TavrelDDLogMessage*) { logger.finishHandOver(); });
  }
}

void LogFanOut::add(std::shared_ptr<TavrelDDLogger> logger, unsigned level) {
  const auto isSame = [&](const auto& node) { return node->logger == logger && node->level == level; };
  if (std::ranges::any_of(_loggers, isSame)) return;
  std::shared_ptr<DispatchQueue> queue = logger->loggerQueue();
  // On the logging queue itself a logger would wait for its own hand-over.
  if (!queue || queue->isCurrent()) queue = DispatchQueue::create(logger->loggerName(), {.forkRank = 2});
  auto node = std::make_shared<TavrelDDLoggerNode>(std::move(logger), std::move(queue), level);
  _loggers.push_back(node);
  didChange();
  node->loggerQueue->async(
      [node] { node->guarded([](TavrelDDLogger& added, const TavrelDDLogMessage*) { added.didAddLogger(); }); });
}

void LogFanOut::remove(const TavrelDDLogger* logger) {
  const Nodes nodes = _loggers;
  std::erase_if(_loggers, [&](const auto& node) { return !logger || node->logger.get() == logger; });
  didChange();
  for (const auto& node : nodes) {
    if (logger && node->logger.get() != logger) continue;
    node->loggerQueue->sync([&] {
      node->level = 0;  // for a caller that is about to write through
      node->guarded([](TavrelDDLogger& removed, const TavrelDDLogMessage*) { removed.willRemoveLogger(); });
    });
  }
}

void LogFanOut::didChange() {
  unsigned through = 0;
  unsigned queued = 0;
  auto lanes = std::make_shared<Lanes>();
  for (const auto& node : _loggers) {
    (node->writesThrough ? through : queued) |= node->level;
    if (node->writesThrough) join(*lanes, node);
  }
  const std::lock_guard lock(throughMutex_);
  throughLanes_ = std::move(lanes);
  throughFlags_ = through;
  queuedFlags_ = queued;
}

void LogFanOut::join(Lanes& lanes, const std::shared_ptr<TavrelDDLoggerNode>& node) {
  auto lane = std::ranges::find(lanes, node->loggerQueue, &Lane::queue);
  if (lane == lanes.end()) lane = lanes.insert(lanes.end(), Lane{node->loggerQueue, {}});
  lane->nodes.push_back(node);
}

LogFanOut::Lanes LogFanOut::lanesFor(std::span<const LogEntry> entries) const {
  unsigned flags = 0;
  unsigned unwritten = 0;
  for (const LogEntry& entry : entries) {
    flags |= entry.message().flag();
    if (!entry.isWrittenThrough) unwritten |= entry.message().flag();
  }
  Lanes lanes;
  for (const auto& node : _loggers) {
    if ((node->level & (node->writesThrough ? unwritten : flags)) != 0) join(lanes, node);
  }
  return lanes;
}

bool LogFanOut::writeThrough(const LogEntry& entry) {
  const std::int64_t start = coarseMilliseconds();
  if (start < slowUntil_.load(std::memory_order_relaxed)) return false;
  bool isWritten = false;
  if (backlog_.waitUntilCaughtUp(kPatience)) {
    std::shared_ptr<const Lanes> lanes;
    {
      const std::lock_guard lock(throughMutex_);
      lanes = throughLanes_;
    }
    isWritten = writeThrough(*lanes, entry);
  }
  const std::int64_t end = coarseMilliseconds();
  if (end - start >= kPatience.count()) slowUntil_ = end + kSlowFor.count();
  return isWritten;
}

bool LogFanOut::writeThrough(std::span<const Lane> lanes, const LogEntry& entry) {
  if (lanes.empty()) return true;
  const Lane& lane = lanes.front();
  bool isWritten = false;
  lane.queue->trySync(kPatience, [&] {
    isWritten = writeThrough(lanes.subspan(1), entry);
    if (!isWritten) return;
    lane.write(entry);
    lane.finishHandOver();
  });
  return isWritten;
}

void LogFanOut::write(std::span<const LogEntry> entries) {
  const Lanes lanes = lanesFor(entries);
  if (lanes.empty()) {
    for (const LogEntry& entry : entries) backlog_.didFinish(entry);
  } else if (lanes.size() == 1) {
    writeToOne(lanes.front(), entries);
  } else if (_numProcessors > 1) {
    writeInParallel(lanes, entries);
  } else {
    writeOneAfterTheOther(entries);
  }
}

void LogFanOut::writeToOne(const Lane& lane, std::span<const LogEntry> entries) {
  runOn(*lane.queue, [&] {
    for (const LogEntry& entry : entries) {
      lane.write(entry);
      if (entry.done) lane.finishHandOver();
      backlog_.didFinish(entry);
    }
    lane.finishHandOver();
  });
}

void LogFanOut::writeInParallel(const Lanes& lanes, std::span<const LogEntry> entries) {
  LogLockstep lockstep(static_cast<unsigned>(lanes.size()), lanes.size() <= _numProcessors,
                       [&](std::uint32_t step) { backlog_.didFinish(entries[step]); });
  DispatchGroup group;  // its own: a child whose fork did not wait for the last write has none of its threads
  for (const Lane& lane : lanes) {
    group.async(lane.queue, [&lane, &lockstep, entries] {
      for (std::uint32_t step = 0; step < entries.size(); ++step) {
        const LogEntry& entry = entries[step];
        lane.write(entry);
        if (entry.done) lane.finishHandOver();
        lockstep.finish(step, [&] { lane.finishHandOver(); });
      }
      lane.finishHandOver();
    });
  }
  group.wait();
}

void LogFanOut::writeOneAfterTheOther(std::span<const LogEntry> entries) {
  for (const LogEntry& entry : entries) {
    for (const auto& node : _loggers) {
      if (!node->admits(entry)) continue;
      const Lane lane{node->loggerQueue, {node}};
      runOn(*lane.queue, [&] {
        lane.write(entry);
        lane.finishHandOver();
      });
    }
    backlog_.didFinish(entry);
  }
}

void LogFanOut::flush() {
  DispatchGroup group;
  for (const auto& node : _loggers) {
    group.async(node->loggerQueue,
                [node] { node->guarded([](TavrelDDLogger& logger, const TavrelDDLogMessage*) { logger.flush(); }); });
  }
  group.wait();
}

}  // namespace tavrel
