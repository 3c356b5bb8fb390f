#pragma once

#include <fmt/core.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TavrelBase/Log/TavrelDDLogClass.h"
#include "TavrelBase/Log/TavrelDDLogMessage.h"
#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

/// The process-wide switchboard between the code that logs and the loggers that write.
///
///     caller ──▶ loggers that write through ──▶ backlog (1000) ──▶ logging queue ──▶ queue of each other logger
///
/// Records reach every logger whose mask holds the record's flag, in the order in which each thread logged them.
/// Loggers that write through, as the file logger does, have written when the call returns; where that would take long,
/// their records take the way of the others. All others write one record at the same time, and the next one starts when
/// the last of them has finished; on a single processor they write one after the other. While every record of a stretch
/// concerns one logger only, the stretch is handed over as a whole. A synchronous call returns when all have written.
///
/// Any thread. A call waits while 1000 records are queued and not yet written. Calls that a logger or the logging queue
/// makes itself never wait. A program may fork at any time: the child has the same loggers, and the records that were
/// queued stay the parent's. At the end of the process (and on `kApplicationWillTerminateNotification`) everything
/// queued is flushed; records that come later still go to the console as plain text. Before `quick_exit`, a fatal
/// assertion or a signal (`TavrelLogger::setHandlesSignals`) ends the process, everything queued is written, within a
/// second.
class TAVREL_API TavrelDDLog {
 public:
  /// Records that may be queued and not yet be written.
  static constexpr std::size_t kMaximumQueueSize = 1000;

  static TavrelDDLog& sharedInstance();

  TavrelDDLog(const TavrelDDLog&) = delete;
  TavrelDDLog& operator=(const TavrelDDLog&) = delete;

  /// The serial queue of all bookkeeping. Blocks submitted to it run behind everything logged before by the same
  /// thread.
  static const std::shared_ptr<DispatchQueue>& loggingQueue();
  static bool isOnLoggingQueue();

  /// Adds `logger` for the records whose flag is in `level`, from the caller's next record on. Nothing happens when it
  /// is there with the same level already; with another level it is added once more.
  static void addLogger(std::shared_ptr<TavrelDDLogger> logger, unsigned level = TavrelDDLogLevelAll);
  /// Removes it with all its levels; it still gets the caller's earlier records.
  static void removeLogger(const std::shared_ptr<TavrelDDLogger>& logger);
  static void removeAllLoggers();
  /// In the order of adding, a logger with several levels several times. From inside a logger: as of the last change.
  static std::vector<std::shared_ptr<TavrelDDLogger>> allLoggers();

  /// Formats with fmt and logs. With `asynchronous` the call returns at once, otherwise after the last logger has
  /// written. An argument whose formatting fails turns the text into a note about that.
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
  /// Logs a finished text.
  static void log(bool asynchronous, std::string_view message, unsigned level, unsigned flag, Index context,
                  const char* file, std::string_view function, unsigned line, std::string_view tag);
  /// Logs a ready record.
  static void log(bool asynchronous, TavrelDDLogMessage message);
  static void queueLogMessage(TavrelDDLogMessage message, bool asynchronously);
  /// Hands one record to the loggers and returns when all have written it. Only on the logging queue.
  static void lt_log(const TavrelDDLogMessage& message);

  /// Returns when every logger has written everything queued so far and has flushed it. From inside a logger it only
  /// asks for that and returns at once.
  static void flushLog();

  /// The classes that carry a level of their own, in the order of registration. Names may repeat; by name, the first
  /// counts.
  static std::vector<TavrelDDLogClass*> registeredClasses();
  static std::vector<std::string> registeredClassNames();
  static bool isRegisteredClass(std::string_view name);
  static unsigned levelForClass(const TavrelDDLogClass& logClass);
  /// 0 for a name that is not registered.
  static unsigned levelForClassWithName(std::string_view name);
  static void setLevel(unsigned level, TavrelDDLogClass& forClass);
  /// Does nothing for a name that is not registered.
  static void setLevel(unsigned level, std::string_view forClassWithName);

 private:
  friend class TavrelLogger;
  struct Implementation;

  TavrelDDLog();
  ~TavrelDDLog();
  /// `addLogger` that waits for the first record before it starts any thread.
  static void addLoggerAtFirstRecord(std::shared_ptr<TavrelDDLogger> logger, unsigned level);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
