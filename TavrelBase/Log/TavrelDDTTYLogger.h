#pragma once

#include <memory>
#include <string>

#include "TavrelBase/Log/TavrelDDAbstractLogger.h"

namespace tavrel {

/// Writes records to standard error: date, local time and its zone, program and process number, the message's level,
/// tag and text, in one line, for instance "2026-03-01 12:00:00.250 +0100 tavrel[812] [W] TavrelCamera: front camera
/// not available". With a formatter its result takes the place of tag and text. On a terminal errors are red, warnings
/// yellow, debug grey and verbose dim, unless the environment variable NO_COLOR is set. Lines are whole.
///
/// Whatever the descriptor is, a full pipe or a stopped terminal for instance, writing takes a second at most, once,
/// and never ends the process: what the console does not take is lost, and a line says how much as soon as it takes
/// something again.
class TAVREL_API TavrelDDTTYLogger : public TavrelDDAbstractLogger {
 public:
  /// The process's console logger; `TavrelLogger` adds it when the library is loaded.
  static const std::shared_ptr<TavrelDDTTYLogger>& sharedInstance();

  /// Writes to another descriptor, which must stay open as long as the logger lives.
  explicit TavrelDDTTYLogger(int fileDescriptor);
  ~TavrelDDTTYLogger() override;

  void logMessage(const TavrelDDLogMessage& message) override;
  void finishHandOver() override;
  void flush() override { finishHandOver(); }
  std::string loggerName() const override { return "video.tavrel.log.console"; }

 private:
  struct Implementation;

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
