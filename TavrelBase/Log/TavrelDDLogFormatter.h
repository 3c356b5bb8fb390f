#pragma once

#include <string>

#include "TavrelBase/Log/TavrelDDLogMessage.h"

namespace tavrel {

/// Turns a record into text. Called on its logger's queue.
class TAVREL_API TavrelDDLogFormatter {
 public:
  virtual ~TavrelDDLogFormatter();
  virtual std::string formatLogMessage(const TavrelDDLogMessage& message) = 0;
};

}  // namespace tavrel
