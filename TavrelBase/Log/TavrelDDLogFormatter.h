#pragma once

#include <string>

#include "TavrelBase/Log/TavrelDDLogMessage.h"

namespace tavrel {

/// Turns a record into text. Called on the queue of the logger that holds it.
class TAVREL_API TavrelDDLogFormatter {
 public:
  virtual ~TavrelDDLogFormatter();
  virtual std::string formatLogMessage(const TavrelDDLogMessage& message) = 0;
};

}  // namespace tavrel
