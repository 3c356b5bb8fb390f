#pragma once

#include <memory>
#include <string>

#include "TavrelBase/Log/TavrelDDAbstractLogger.h"

namespace tavrel {

/// Writes records to standard error: date and time, program and process number, level, tag and text, in one line, for
/// instance "2026-03-01 12:00:00.250 tavrel[812] [W] TavrelCamera: front camera not available". With a formatter its
/// result takes the place of tag and text. On a terminal errors are red, warnings yellow, debug grey and verbose dim,
/// unless the environment variable NO_COLOR is set. Lines are whole; what a closed or stuck console cannot take within
/// a second is dropped.
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
