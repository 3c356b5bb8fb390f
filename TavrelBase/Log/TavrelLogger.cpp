#include "TavrelBase/Log/TavrelLogger.h"

#include <mutex>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "TavrelBase/Log/Private/LastWords.h"

namespace tavrel {
namespace {

unsigned levelForNumber(int levelNumber) {
  constexpr unsigned kLevels[] = {TavrelDDLogLevelOff,  TavrelDDLogLevelError, TavrelDDLogLevelWarning,
                                  TavrelDDLogLevelInfo, TavrelDDLogLevelDebug, TavrelDDLogLevelVerbose};
  return levelNumber > 0 && levelNumber < 6 ? kLevels[levelNumber] : kLevels[0];
}

}  // namespace

/// Attaches the console when the library is loaded.
struct TavrelLogger::Load {
  Load() { TavrelDDLog::addLoggerAtFirstRecord(TavrelDDTTYLogger::sharedInstance(), tavrelDDLogLevel); }
  static const Load once;
};

const TavrelLogger::Load TavrelLogger::Load::once;

struct TavrelLogger::Implementation {
  std::mutex mutex;
  std::shared_ptr<TavrelDDFileLogger> fileLogger;
};

TavrelLogger::TavrelLogger() : implementation_(std::make_unique<Implementation>()) {}

TavrelLogger& TavrelLogger::sharedLogger() {
  // Never destroyed: other static objects may use it while they are destroyed. The file logger ends with the process.
  static auto* instance = [] {
    auto* created = new TavrelLogger;
    ProcessEnd::at(ProcessEnd::Stage::log, [] { sharedLogger().setFileLogger(nullptr); });
    return created;
  }();
  return *instance;
}

void TavrelLogger::setLogLevel(int levelNumber) { tavrelDDLogLevel = levelForNumber(levelNumber); }

void TavrelLogger::enableFileLoggerWithLogLevel(unsigned level) {
  TavrelDDLog::addLogger(sharedLogger().fileLogger(), level);
}

void TavrelLogger::enableFileLogger() { enableFileLoggerWithLogLevel(tavrelDDLogLevel); }

void TavrelLogger::setHandlesSignals(bool handles) { LastWords::setHandlesSignals(handles); }

std::shared_ptr<TavrelDDFileLogger> TavrelLogger::fileLogger() {
  const std::lock_guard lock(implementation_->mutex);
  if (!implementation_->fileLogger) implementation_->fileLogger = std::make_shared<TavrelDDFileLogger>();
  return implementation_->fileLogger;
}

void TavrelLogger::setFileLogger(std::shared_ptr<TavrelDDFileLogger> fileLogger) {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->fileLogger.swap(fileLogger);
}

}  // namespace tavrel
