#pragma once

#include "TavrelBase/Log/TavrelDDLogFormatter.h"

namespace tavrel {

/// The file logger's default formatter: the time of the call in UTC as "yyyy/MM/dd HH:mm:ss:SSS +0000". The line
/// already has the rest, with the message's own level rather than the mask that guarded the call.
class TAVREL_API TavrelDDLogFileFormatterDefault : public TavrelDDLogFormatter {
 public:
  std::string formatLogMessage(const TavrelDDLogMessage& message) override;

 private:
  friend class TavrelDDFileLogger;
  /// The same, valid until the calling thread's next call.
  static std::string_view timeOf(const TavrelDDLogMessage& message);
};

}  // namespace tavrel
