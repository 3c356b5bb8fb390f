#pragma once

#include <atomic>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// One bit for each kind of message; a message carries exactly one.
enum TavrelDDLogFlag : unsigned {
  TavrelDDLogFlagError = 1,
  TavrelDDLogFlagWarning = 2,
  TavrelDDLogFlagInfo = 4,
  TavrelDDLogFlagDebug = 8,
  TavrelDDLogFlagVerbose = 16,
};

/// Masks of flags: each named level admits its own kind and everything graver. Any other mask is allowed too.
enum TavrelDDLogLevel : unsigned {
  TavrelDDLogLevelOff = 0,
  TavrelDDLogLevelError = 1,
  TavrelDDLogLevelWarning = 3,
  TavrelDDLogLevelInfo = 7,
  TavrelDDLogLevelDebug = 15,
  TavrelDDLogLevelVerbose = 31,
  TavrelDDLogLevelAll = ~0U,
};

/// The mask that guards every log call of the library; debug at first. Read and written on any thread; a change affects
/// the calls that follow, while loggers keep the mask they were added with.
TAVREL_API extern std::atomic<unsigned> tavrelDDLogLevel;

/// The named level whose own kind `flag` is, which admits it and everything graver.
constexpr unsigned TavrelDDLevelOfFlag(unsigned flag) { return 2 * flag - 1; }

/// How a level is called in log lines: "[E]", "[W]", "[I]", "[D]" or "[V]" for the five named masks, "[N]" for any
/// other.
TAVREL_API std::string_view TavrelDDNameOfLevel(unsigned level);

}  // namespace tavrel
