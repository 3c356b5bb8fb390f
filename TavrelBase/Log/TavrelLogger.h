#pragma once

#include <memory>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/LogCall.h"
#include "TavrelBase/Log/TavrelDDFileLogger.h"
#include "TavrelBase/Log/TavrelDDTTYLogger.h"

namespace tavrel {

/// The library's own logging: the level of its log calls; the console logger, added with the level at load time; and,
/// on request, the file logger. Any thread.
class TAVREL_API TavrelLogger {
 public:
  static TavrelLogger& sharedLogger();

  TavrelLogger(const TavrelLogger&) = delete;
  TavrelLogger& operator=(const TavrelLogger&) = delete;

  /// 1 error, 2 warning, 3 info, 4 debug, 5 verbose; any other number turns the library's logging off. Loggers added
  /// before keep their level.
  static void setLogLevel(int levelNumber);
  /// Adds the file logger to the dispatcher.
  static void enableFileLoggerWithLogLevel(unsigned level);
  /// The same with the current `tavrelDDLogLevel`.
  static void enableFileLogger();

  /// Whether SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGSYS and SIGTERM write pending records and the signal's name
  /// to the open log files, within a second, before the previous handler runs; true by default. Handlers are installed
  /// with the first file logger, except for signals that are ignored then. An application that installs its own
  /// handlers later should chain to these, or turn this off.
  static void setHandlesSignals(bool handles);

  /// Created with default settings on first use unless one was set.
  std::shared_ptr<TavrelDDFileLogger> fileLogger();
  void setFileLogger(std::shared_ptr<TavrelDDFileLogger> fileLogger);

 private:
  struct Load;
  struct Implementation;

  TavrelLogger();

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
