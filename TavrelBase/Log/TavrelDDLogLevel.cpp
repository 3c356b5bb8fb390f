#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {

std::atomic<unsigned> tavrelDDLogLevel = TavrelDDLogLevelDebug;

std::string_view TavrelDDNameOfLevel(unsigned level) {
  switch (level) {
    case TavrelDDLogLevelError: return "[E]";
    case TavrelDDLogLevelWarning: return "[W]";
    case TavrelDDLogLevelInfo: return "[I]";
    case TavrelDDLogLevelDebug: return "[D]";
    case TavrelDDLogLevelVerbose: return "[V]";
    default: return "[N]";
  }
}

}  // namespace tavrel
