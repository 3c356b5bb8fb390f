#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "TavrelBase/Log/Private/LogFanOut.h"
#include "TavrelBase/Log/Private/LogLockstep.h"
#include "TavrelBase/Log/Private/LogScope.h"

namespace tavrel {

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

void LogFanOut::Lane::write(const TavrelDDLogMessage& message) const {
  for (const auto& node : nodes) {
    if (!node->admits(message)) continue;
    node->guarded([](TavrelDDLogger& logger, const TavrelDDLogMessage* record) { logger.logMessage(*record); },
                  &message);
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
  if (!queue || queue->isCurrent()) queue = DispatchQueue::create(logger->loggerName());
  auto node = std::make_shared<TavrelDDLoggerNode>(std::move(logger), std::move(queue), level);
  _loggers.push_back(node);
  node->loggerQueue->async(
      [node] { node->guarded([](TavrelDDLogger& added, const TavrelDDLogMessage*) { added.didAddLogger(); }); });
}

void LogFanOut::remove(const TavrelDDLogger* logger) {
  std::erase_if(_loggers, [&](const auto& node) {
    if (logger && node->logger.get() != logger) return false;
    node->loggerQueue->sync(
        [&] { node->guarded([](TavrelDDLogger& removed, const TavrelDDLogMessage*) { removed.willRemoveLogger(); }); });
    return true;
  });
}

std::vector<LogFanOut::Lane> LogFanOut::lanesFor(std::span<const LogEntry> entries) const {
  unsigned flags = 0;
  for (const LogEntry& entry : entries) flags |= entry.message().flag();
  std::vector<Lane> lanes;
  for (const auto& node : _loggers) {
    if ((node->level & flags) == 0) continue;
    auto lane = std::ranges::find(lanes, node->loggerQueue, &Lane::queue);
    if (lane == lanes.end()) lane = lanes.insert(lanes.end(), Lane{node->loggerQueue, {}});
    lane->nodes.push_back(node);
  }
  return lanes;
}

void LogFanOut::write(std::span<const LogEntry> entries) {
  const std::vector<Lane> lanes = lanesFor(entries);
  if (lanes.empty()) {
    for (const LogEntry& entry : entries) didWrite(entry);
  } else if (lanes.size() == 1) {
    writeToOne(lanes.front(), entries);
  } else if (_numProcessors > 1) {
    writeInParallel(lanes, entries);
  } else {
    writeOneAfterTheOther(entries);
  }
}

void LogFanOut::writeToOne(const Lane& lane, std::span<const LogEntry> entries) {
  lane.queue->sync([&] {
    for (const LogEntry& entry : entries) {
      lane.write(entry.message());
      if (entry.done) lane.finishHandOver();
      didWrite(entry);
    }
    lane.finishHandOver();
  });
}

void LogFanOut::writeInParallel(const std::vector<Lane>& lanes, std::span<const LogEntry> entries) {
  LogLockstep lockstep(static_cast<unsigned>(lanes.size()), lanes.size() <= _numProcessors,
                       [&](std::uint32_t step) { didWrite(entries[step]); });
  for (const Lane& lane : lanes) {
    loggingGroup_.async(lane.queue, [&lane, &lockstep, entries] {
      for (std::uint32_t step = 0; step < entries.size(); ++step) {
        const LogEntry& entry = entries[step];
        lane.write(entry.message());
        if (entry.done) lane.finishHandOver();
        lockstep.finish(step, [&] { lane.finishHandOver(); });
      }
      lane.finishHandOver();
    });
  }
  loggingGroup_.wait();
}

void LogFanOut::writeOneAfterTheOther(std::span<const LogEntry> entries) {
  for (const LogEntry& entry : entries) {
    for (const auto& node : _loggers) {
      if (!node->admits(entry.message())) continue;
      const Lane lane{node->loggerQueue, {node}};
      lane.queue->sync([&] {
        lane.write(entry.message());
        lane.finishHandOver();
      });
    }
    didWrite(entry);
  }
}

void LogFanOut::flush() {
  for (const auto& node : _loggers) {
    loggingGroup_.async(node->loggerQueue, [node] {
      node->guarded([](TavrelDDLogger& logger, const TavrelDDLogMessage*) { logger.flush(); });
    });
  }
  loggingGroup_.wait();
}

void LogFanOut::didWrite(const LogEntry& entry) {
  // Room first: a synchronous caller may log again at once.
  if (entry.takesRoom) backlog_.didWrite();
  if (entry.done) entry.done->signal();
}

}  // namespace tavrel
