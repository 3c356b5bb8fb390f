#include "TavrelBase/Log/TavrelDDLogFileFormatterDefault.h"

#include "TavrelBase/Log/Private/LogTimeText.h"

namespace tavrel {

std::string_view TavrelDDLogFileFormatterDefault::timeOf(const TavrelDDLogMessage& message) {
  static thread_local LogTimeText time(LogTimeText::Zone::utc, "{:%Y/%m/%d %H:%M:%S}", ':');
  return time.text(message.timestamp());
}

std::string TavrelDDLogFileFormatterDefault::formatLogMessage(const TavrelDDLogMessage& message) {
  return std::string(timeOf(message));
}

}  // namespace tavrel
