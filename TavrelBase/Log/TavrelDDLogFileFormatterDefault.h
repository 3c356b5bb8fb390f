#pragma once

#include "TavrelBase/Log/TavrelDDLogFormatter.h"

namespace tavrel {

/// The file logger's formatter unless another is set: the date and time of the call, UTC, as "yyyy/MM/dd HH:mm:ss:SSS".
/// The rest of the record is in the line already.
class TAVREL_API TavrelDDLogFileFormatterDefault : public TavrelDDLogFormatter {
 public:
  std::string formatLogMessage(const TavrelDDLogMessage& message) override;
};

}  // namespace tavrel
