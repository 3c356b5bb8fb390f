#include "TavrelBase/Log/TavrelDDLogFileFormatterDefault.h"

#include "TavrelBase/Log/Private/LogTimeText.h"

namespace tavrel {

std::string TavrelDDLogFileFormatterDefault::formatLogMessage(const TavrelDDLogMessage& message) {
  static thread_local LogTimeText time(LogTimeText::Zone::utc, "{:%Y/%m/%d %H:%M:%S}", ':');
  return std::string(time.text(message.timestamp()));
}

}  // namespace tavrel
