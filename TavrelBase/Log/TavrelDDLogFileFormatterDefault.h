#pragma once

#include "TavrelBase/Log/TavrelDDLogFormatter.h"

namespace tavrel {

/// The file logger's formatter unless another is set: the date, time and zone of the call, UTC, as
/// "yyyy/MM/dd HH:mm:ss:SSS +0000". The rest of the record is in the line already, with the message's own level (its
/// flag) rather than the mask that guarded the call.
class TAVREL_API TavrelDDLogFileFormatterDefault : public TavrelDDLogFormatter {
 public:
  std::string formatLogMessage(const TavrelDDLogMessage& message) override;
};

}  // namespace tavrel
