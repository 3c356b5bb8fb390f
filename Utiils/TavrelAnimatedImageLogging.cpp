#include <utility>

#include "TavrelBase/Log/LogCall.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {

TavrelAnimatedImage::LogBlock TavrelAnimatedImage::libraryLogBlock() {
  return [](const std::string& logString, TavrelAnimatedImageLogLevel logLevel) {
    constexpr unsigned kFlags[] = {0, TavrelDDLogFlagError, TavrelDDLogFlagWarning, TavrelDDLogFlagInfo,
                                   TavrelDDLogFlagDebug};
    TAVREL_LOG(kFlags[static_cast<std::size_t>(logLevel)], "TavrelAnimatedImage", "{}", logString);
  };
}

void TavrelAnimatedImage::setLogBlock(LogBlock logBlock, TavrelAnimatedImageLogLevel logLevel) {
  const std::lock_guard lock(shared().mutex);
  shared().logBlock = std::move(logBlock);
  shared().logLevel = logLevel;
}

void TavrelAnimatedImage::logStringFromBlock(const std::function<std::string()>& stringBlock,
                                             TavrelAnimatedImageLogLevel withLevel) {
  LogBlock logBlock;
  {
    const std::lock_guard lock(shared().mutex);
    if (withLevel > shared().logLevel) return;
    logBlock = shared().logBlock;
  }
  if (logBlock && stringBlock) logBlock(stringBlock(), withLevel);
}

}  // namespace tavrel
