#pragma once

#include <fmt/core.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/TavrelDDLogClass.h"
#include "TavrelBase/Log/TavrelDDLogMessage.h"
#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

/// Dispatches log records from the code that logs to the loggers.
///
///     caller ──▶ loggers that write through ──▶ backlog (1000) ──▶ logging queue ──▶ queue of each other logger
///
/// Every logger whose mask contains a record's flag receives it, in the order in which each thread logged. Loggers that
/// write through, such as the file logger, have written when the call returns, unless that would take long. The others
/// write a record concurrently (one after the other on a single processor); the next record follows when all have
/// finished. Consecutive records for the same single logger are handed over together. A synchronous call returns when
/// all loggers have written.
///
/// Any thread. A call waits while 1000 records are pending; calls made by loggers or on the logging queue never wait. A
/// program may fork at any time: the child has the same loggers, but pending records stay with the parent. Pending
/// records are flushed at the end of the process and on `kApplicationWillTerminateNotification`; later ones go to the
/// console as plain text. Before `quick_exit`, a fatal assertion or a signal (`TavrelLogger::setHandlesSignals`) ends
/// the process, pending records are written, within a second.
class TAVREL_API TavrelDDLog {
 public:
  /// Maximum number of pending records.
  static constexpr std::size_t kMaximumQueueSize = 1000;
  /// Maximum number of records that loggers gather, having received them, before they must write them.
  static constexpr std::size_t kMaximumGathering = 64;

  static TavrelDDLog& sharedInstance();

  TavrelDDLog(const TavrelDDLog&) = delete;
  TavrelDDLog& operator=(const TavrelDDLog&) = delete;

  /// The dispatcher's serial queue. A block runs after everything logged before by the same thread.
  static const std::shared_ptr<DispatchQueue>& loggingQueue();
  static bool isOnLoggingQueue();

  /// Adds `logger` for records whose flag is in `level`, from the caller's next record on. Has no effect if it was
  /// added with the same level; with another level it is added again.
  static void addLogger(std::shared_ptr<TavrelDDLogger> logger, unsigned level = TavrelDDLogLevelAll);
  /// Removes the logger with all its levels, after the caller's earlier records.
  static void removeLogger(const std::shared_ptr<TavrelDDLogger>& logger);
  static void removeAllLoggers();
  /// In order of addition; a logger with several levels appears several times.
  static std::vector<std::shared_ptr<TavrelDDLogger>> allLoggers();

  /// Formats with fmt and logs. Returns at once if `asynchronous`, otherwise after every logger has written. If
  /// formatting fails, the text says so.
  template <typename... Args>
  static void log(bool asynchronous, unsigned level, unsigned flag, Index context, const char* file,
                  std::string_view function, unsigned line, std::string_view tag, fmt::format_string<Args...> format,
                  Args&&... args) {
    log(asynchronous, level, flag, context, file, function, line, tag, fmt::string_view(format),
        fmt::format_args(fmt::make_format_args(args...)));
  }
  static void log(bool asynchronous, unsigned level, unsigned flag, Index context, const char* file,
                  std::string_view function, unsigned line, std::string_view tag, fmt::string_view format,
                  fmt::format_args args);
  /// Logs a formatted text.
  static void log(bool asynchronous, std::string_view message, unsigned level, unsigned flag, Index context,
                  const char* file, std::string_view function, unsigned line, std::string_view tag);
  /// Logs a record.
  static void log(bool asynchronous, TavrelDDLogMessage message);
  static void queueLogMessage(TavrelDDLogMessage message, bool asynchronously);
  /// Hands a record to the loggers and returns when all have written it. Only on the logging queue.
  static void lt_log(const TavrelDDLogMessage& message);

  /// Returns when every logger has written and flushed everything logged so far; called by a logger, it returns at
  /// once.
  static void flushLog();

  /// The classes with their own level, in order of registration. If names repeat, look-up by name finds the first.
  static std::vector<TavrelDDLogClass*> registeredClasses();
  static std::vector<std::string> registeredClassNames();
  static bool isRegisteredClass(std::string_view name);
  static unsigned levelForClass(const TavrelDDLogClass& logClass);
  /// 0 if the name is not registered.
  static unsigned levelForClassWithName(std::string_view name);
  static void setLevel(unsigned level, TavrelDDLogClass& forClass);
  /// Has no effect if the name is not registered.
  static void setLevel(unsigned level, std::string_view forClassWithName);

 private:
  friend class TavrelLogger;
  struct Implementation;

  TavrelDDLog();
  ~TavrelDDLog();
  /// `addLogger`, but without starting a thread before the first record.
  static void addLoggerAtFirstRecord(std::shared_ptr<TavrelDDLogger> logger, unsigned level);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
