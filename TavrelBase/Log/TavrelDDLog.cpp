#include "TavrelBase/Log/TavrelDDLog.h"

#include <fmt/format.h>

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Foundation/ProcessEnd.h"
#include "TavrelBase/Log/Private/LastWords.h"
#include "TavrelBase/Log/Private/LogFanOut.h"
#include "TavrelBase/Log/Private/LogScope.h"

namespace tavrel {
namespace {

/// The processors that this process may use, which can be fewer than the machine has.
unsigned processorCount() {
  cpu_set_t processors;
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return std::thread::hardware_concurrency();
  return static_cast<unsigned>(CPU_COUNT(&processors));
}

}  // namespace

struct TavrelDDLog::Implementation {
  LogBacklog backlog{kMaximumQueueSize};
  LogFanOut fanOut{processorCount(), backlog};
  std::once_flag queueOnce;
  std::shared_ptr<DispatchQueue> loggingQueue;
  bool isEndingInLogger = false;
  std::vector<LogEntry> batch;  // what the logging queue works on
  std::mutex snapshotMutex;
  std::vector<std::shared_ptr<TavrelDDLogger>> snapshot;
  LimitedReports dropped{"TavrelDDLog: no more dropped messages will be reported."};

  const std::shared_ptr<DispatchQueue>& queue() {
    std::call_once(queueOnce, [this] {
      loggingQueue = DispatchQueue::create("video.tavrel.logging", {.forkRank = 1});
      loggingQueue->setSpecific(this, this);
      registerEnd();
    });
    return loggingQueue;
  }

  void registerEnd() {
    ProcessEnd::at(ProcessEnd::Stage::endingThread, [this] { isEndingInLogger = isCallerWaitedFor(); });
    ProcessEnd::at(ProcessEnd::Stage::log, [this] { windUp(); });
  }

  void lock() {
    backlog.lock();
    fanOut.lock();
    snapshotMutex.lock();
  }

  void unlock() {
    snapshotMutex.unlock();
    fanOut.unlock();
    backlog.unlock();
  }

  /// In a forked child.
  void renew() {
    backlog.renew();
    new (&batch) std::vector<LogEntry>;  // not destroyed: it may be of a thread that the child does not have
    if (loggingQueue) registerEnd();
  }

  bool isOnLoggingQueue() { return DispatchQueue::getSpecific(this) == this; }

  /// Whether the dispatcher waits for the calling thread, so that this one must not wait for the dispatcher.
  bool isCallerWaitedFor() { return LogScope::isInside() || isOnLoggingQueue(); }

  LogBacklog::Push submit(LogEntry& entry, bool mayWait) {
    const bool isWaitedFor = entry.isMessage() && fanOut.mayWriteThrough(entry);
    const bool callerWaits = entry.done != nullptr;
    const LogBacklog::Push result = backlog.push(entry, mayWait, isWaitedFor);
    if (result != LogBacklog::Push::acceptedAndIdle) return result;
    // A caller that waits anyway does the work itself.
    if (callerWaits && queue()->trySync(std::chrono::nanoseconds(0), [this] { workOnBatch(); })) {
      if (backlog.continueWork(false)) loggingQueue->async([this] { work(); });
    } else {
      queue()->async([this] { work(); });
    }
    return result;
  }

  /// Runs bookkeeping in its place between the records; waits for it unless the caller is waited for itself.
  void perform(LogEntry::Operation operation, bool waits) {
    waits = waits && !isCallerWaitedFor();
    DispatchSemaphore done(0);
    LogEntry entry{std::move(operation), waits ? &done : nullptr};
    if (submit(entry, waits) != LogBacklog::Push::closed && waits) done.wait();
  }

  void work() {
    workOnBatch();
    // Again as a block of its own, so that other users of the queue get their turn.
    if (backlog.continueWork()) loggingQueue->async([this] { work(); });
  }

  void workOnBatch() {
    const LogScope scope;
    const std::span<LogEntry> entries = backlog.take(batch);
    for (auto entry = entries.begin(); entry != entries.end();) {
      if (entry->isMessage()) {
        const auto limit = entry + std::min<std::ptrdiff_t>(kMaximumGathering, entries.end() - entry);
        const auto end = std::find_if_not(entry, limit, [](const LogEntry& next) { return next.isMessage(); });
        fanOut.write({entry, end});
        backlog.didHandOver();
        entry = end;
      } else {
        std::get<LogEntry::Operation>(entry->content)();
        backlog.didFinish(*entry);
        ++entry;
      }
    }
    for (LogEntry& entry : entries) entry.letGo();
  }

  void takeSnapshot() {
    std::vector<std::shared_ptr<TavrelDDLogger>> loggers;
    for (const auto& node : fanOut.loggers()) loggers.push_back(node->logger);
    const std::lock_guard lock(snapshotMutex);
    snapshot.swap(loggers);
  }

  void lt_addLogger(std::shared_ptr<TavrelDDLogger> logger, unsigned level) {
    LastWords::watch(backlog);
    if (logger->writesThrough()) LastWords::hearSignals();
    fanOut.add(std::move(logger), level);
    takeSnapshot();
  }

  void lt_removeLogger(const TavrelDDLogger* logger) {
    fanOut.remove(logger);
    takeSnapshot();
  }

  void windUp() {
    // A logger that ends the process would wait for itself.
    if (isEndingInLogger) return;
    backlog.close();
    loggingQueue->sync([this] {
      do {
        workOnBatch();
      } while (backlog.continueWork());
      const LogScope scope;
      fanOut.flush();
      lt_removeLogger(nullptr);
    });
    loggingQueue->shutDown();
  }
};

TavrelDDLog::TavrelDDLog() : implementation_(std::make_unique<Implementation>()) {
  ProcessEnd::watchForks();  // whose part comes first in the child
  pthread_atfork([] { sharedInstance().implementation_->lock(); }, [] { sharedInstance().implementation_->unlock(); },
                 [] {
                   sharedInstance().implementation_->unlock();
                   sharedInstance().implementation_->renew();
                 });
  NotificationCenter::defaultCenter().addObserver(kApplicationWillTerminateNotification,
                                                  [](std::string_view, const void*) { flushLog(); });
}

TavrelDDLog::~TavrelDDLog() = default;

TavrelDDLog& TavrelDDLog::sharedInstance() {
  // Never destroyed: other static objects may log while they are destroyed.
  static auto* instance = new TavrelDDLog;
  return *instance;
}

const std::shared_ptr<DispatchQueue>& TavrelDDLog::loggingQueue() {
  Implementation& shared = *sharedInstance().implementation_;
  const auto& queue = shared.queue();
  switch (shared.backlog.hurry()) {
    case LogBacklog::Work::oneBatch: queue->async([&shared] { shared.workOnBatch(); }); break;
    case LogBacklog::Work::untilIdle: queue->async([&shared] { shared.work(); }); break;
    case LogBacklog::Work::none: break;
  }
  return queue;
}

bool TavrelDDLog::isOnLoggingQueue() { return sharedInstance().implementation_->isOnLoggingQueue(); }

void TavrelDDLog::addLogger(std::shared_ptr<TavrelDDLogger> logger, unsigned level) {
  if (!logger) return;
  Implementation& shared = *sharedInstance().implementation_;
  shared.perform([&shared, logger = std::move(logger), level] { shared.lt_addLogger(logger, level); }, false);
}

void TavrelDDLog::addLoggerAtFirstRecord(std::shared_ptr<TavrelDDLogger> logger, unsigned level) {
  Implementation& shared = *sharedInstance().implementation_;
  shared.backlog.pushIdle({[&shared, logger = std::move(logger), level] { shared.lt_addLogger(logger, level); }});
}

void TavrelDDLog::removeLogger(const std::shared_ptr<TavrelDDLogger>& logger) {
  if (!logger) return;
  Implementation& shared = *sharedInstance().implementation_;
  shared.perform([&shared, logger] { shared.lt_removeLogger(logger.get()); }, false);
}

void TavrelDDLog::removeAllLoggers() {
  Implementation& shared = *sharedInstance().implementation_;
  shared.perform([&shared] { shared.lt_removeLogger(nullptr); }, false);
}

std::vector<std::shared_ptr<TavrelDDLogger>> TavrelDDLog::allLoggers() {
  Implementation& shared = *sharedInstance().implementation_;
  shared.perform([] {}, true);  // behind the changes that the caller submitted before
  const std::lock_guard lock(shared.snapshotMutex);
  return shared.snapshot;
}

void TavrelDDLog::log(bool asynchronous, unsigned level, unsigned flag, Index context, const char* file,
                      std::string_view function, unsigned line, std::string_view tag, fmt::string_view format,
                      fmt::format_args args) {
  fmt::basic_memory_buffer<char, 512> text;
  try {
    fmt::vformat_to(fmt::appender(text), format, args);
  } catch (const std::exception& exception) {
    text.clear();
    fmt::format_to(fmt::appender(text), "(cannot format \"{}\": {})", format, exception.what());
  }
  log(asynchronous, std::string_view(text.data(), text.size()), level, flag, context, file, function, line, tag);
}

void TavrelDDLog::log(bool asynchronous, std::string_view message, unsigned level, unsigned flag, Index context,
                      const char* file, std::string_view function, unsigned line, std::string_view tag) {
  queueLogMessage(TavrelDDLogMessage(message, level, flag, context, file, function, line, tag), asynchronous);
}

void TavrelDDLog::log(bool asynchronous, TavrelDDLogMessage message) {
  queueLogMessage(std::move(message), asynchronous);
}

void TavrelDDLog::queueLogMessage(TavrelDDLogMessage message, bool asynchronously) {
  Implementation& shared = *sharedInstance().implementation_;
  const bool mayWait = !shared.isCallerWaitedFor();
  LogEntry entry{.content = std::move(message), .takesRoom = true};
  const bool isForThrough = shared.fanOut.mayWriteThrough(entry);
  if (mayWait && isForThrough) {
    LastWords::coverThisThread();
    entry.isWrittenThrough = shared.fanOut.writeThrough(entry);
  }
  const bool isQueued = shared.fanOut.isQueued(entry) || (isForThrough && !entry.isWrittenThrough);
  if (!isQueued && shared.backlog.isSettled()) return;

  std::optional<DispatchSemaphore> written;
  if (mayWait && !asynchronously) entry.done = &written.emplace(0);
  switch (shared.submit(entry, mayWait)) {
    case LogBacklog::Push::accepted:
    case LogBacklog::Push::acceptedAndIdle:
      if (written) written->wait();
      break;
    case LogBacklog::Push::full:
      shared.dropped.write("TavrelDDLog: dropped a message of a logger: the backlog is full");
      break;
    case LogBacklog::Push::closed: ConsoleLog::write(entry.message().message()); break;
  }
}

void TavrelDDLog::lt_log(const TavrelDDLogMessage& message) {
  Implementation& shared = *sharedInstance().implementation_;
  if (!shared.isOnLoggingQueue()) fatalAssertion("This method should only be run on the logging thread/queue");
  const LogScope scope;
  const LogEntry entry{message};
  shared.fanOut.write({&entry, 1});
}

void TavrelDDLog::flushLog() {
  Implementation& shared = *sharedInstance().implementation_;
  shared.perform([&shared] { shared.fanOut.flush(); }, true);
}

}  // namespace tavrel
