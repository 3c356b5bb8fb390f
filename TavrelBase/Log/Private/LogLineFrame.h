#pragma once

#include <string_view>

#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {

/// What stands before and behind the text of a log file's line that is no record's, in the form of the records' lines:
/// "APP[PROCESS:THREAD] LEVEL TavrelLogger " and " FUNCTION - TIME\n". Allocates nothing, and may be made in a signal
/// handler.
class LogLineFrame {
 public:
  LogLineFrame(unsigned flag, std::string_view function);

  std::string_view head() const { return {head_, headLength_}; }
  std::string_view tail() const { return {tail_, tailLength_}; }

 private:
  char head_[192];
  char tail_[192];
  std::size_t headLength_ = 0;
  std::size_t tailLength_ = 0;
};

}  // namespace tavrel
