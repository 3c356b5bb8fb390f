#pragma once

#include <atomic>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The severity of a message; a message has exactly one.
enum TavrelDDLogFlag : unsigned {
  TavrelDDLogFlagError = 1,
  TavrelDDLogFlagWarning = 2,
  TavrelDDLogFlagInfo = 4,
  TavrelDDLogFlagDebug = 8,
  TavrelDDLogFlagVerbose = 16,
};

/// Masks of flags. Each named level admits its own flag and the more severe ones; any other mask is allowed.
enum TavrelDDLogLevel : unsigned {
  TavrelDDLogLevelOff = 0,
  TavrelDDLogLevelError = 1,
  TavrelDDLogLevelWarning = 3,
  TavrelDDLogLevelInfo = 7,
  TavrelDDLogLevelDebug = 15,
  TavrelDDLogLevelVerbose = 31,
  TavrelDDLogLevelAll = ~0U,
};

/// The mask that guards the library's log calls; initially debug. A change affects later calls; loggers keep the masks
/// they were added with. Any thread.
TAVREL_API extern std::atomic<unsigned> tavrelDDLogLevel;

/// The named level that admits `flag` and the more severe ones.
constexpr unsigned TavrelDDLevelOfFlag(unsigned flag) { return 2 * flag - 1; }

/// The level's name in log lines: "[E]", "[W]", "[I]", "[D]" or "[V]" for the five named masks, else "[N]".
TAVREL_API std::string_view TavrelDDNameOfLevel(unsigned level);

}  // namespace tavrel
