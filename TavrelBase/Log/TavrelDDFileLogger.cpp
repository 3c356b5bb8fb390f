#include "TavrelBase/Log/TavrelDDFileLogger.h"

#include <fmt/format.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <typeinfo>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "TavrelBase/Log/LogClock.h"
#include "TavrelBase/Log/Private/AppendUtf8.h"
#include "TavrelBase/Log/Private/Concatenate.h"
#include "TavrelBase/Log/Private/RollingLogFile.h"
#include "TavrelBase/Log/TavrelDDLog.h"
#include "TavrelBase/Log/TavrelDDLogFileFormatterDefault.h"
#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {

const std::uint64_t kTavrelDDDefaultLogMaxFileSize = std::uint64_t{6} * 1024 * 1024;
const double kTavrelDDDefaultLogRollingFrequency = 24 * 60 * 60;

namespace {

using namespace std::string_view_literals;
using SteadyClock = std::chrono::steady_clock;

/// The age is looked at once an hour at least: timers do not count while the machine sleeps, and clocks are set.
constexpr double kLongestSleep = 3600;
constexpr double kShortestSleep = 0.001;

/// Kept, since asking for it costs a system call.
std::atomic<pid_t> processNumber = getpid();
[[maybe_unused]] const int forksAreWatched = pthread_atfork(nullptr, nullptr, [] { processNumber = getpid(); });

}  // namespace

/// Everything that belongs to the logger's queue.
struct TavrelDDFileLogger::State {
  State(std::shared_ptr<TavrelDDLogFileManager> manager, std::function<void()> didOpen)
      : file(std::move(manager), std::move(didOpen)) {
    file.maximumFileSize = kTavrelDDDefaultLogMaxFileSize;
    file.rollingFrequency = kTavrelDDDefaultLogRollingFrequency;
  }

  pid_t process = processNumber;
  std::string lineStart = startOfLines();
  bool automaticallyAppendNewlineForCustomFormatters = true;
  RollingLogFile file;
  std::string line;
  std::string encodedLine;
  std::optional<SteadyClock::time_point> rollingTimer;  // when the timer fires that is under way
  std::uint64_t timerNumber = 0;                        // tells it from earlier ones

  /// In a forked child the open file, its watch and the timer are the parent's.
  void startAfresh() {
    process = processNumber;
    lineStart = startOfLines();
    rollingTimer.reset();
    file.leaveToParent();
  }

  std::string startOfLines() const { return fmt::format("{}[{}:", program_invocation_short_name, process); }
};

TavrelDDFileLogger::TavrelDDFileLogger() : TavrelDDFileLogger(std::make_shared<TavrelDDLogFileManagerDefault>()) {}

TavrelDDFileLogger::TavrelDDFileLogger(std::shared_ptr<TavrelDDLogFileManager> logFileManager)
    : logFileManager_(std::move(logFileManager)),
      state_(std::make_unique<State>(logFileManager_, [this] { startRollingTimer(); })) {
  setInitialFormatter(std::make_shared<TavrelDDLogFileFormatterDefault>());
}

TavrelDDFileLogger::~TavrelDDFileLogger() = default;

std::uint64_t TavrelDDFileLogger::maximumFileSize() { return read(state_->file.maximumFileSize); }

void TavrelDDFileLogger::setMaximumFileSize(std::uint64_t bytes) {
  performOnLoggerQueue([&] {
    state_->file.maximumFileSize = bytes;
    state_->file.rollIfTooLarge();
  });
}

double TavrelDDFileLogger::rollingFrequency() { return read(state_->file.rollingFrequency); }

void TavrelDDFileLogger::setRollingFrequency(double seconds) {
  if (std::isnan(seconds)) {
    return ConsoleLog::write(
        "TavrelDDFileLogger.setRollingFrequency: NaN is no number of seconds; nothing was changed");
  }
  performOnLoggerQueue([&] {
    state_->file.rollingFrequency = seconds;
    rollOrWait();
  });
}

bool TavrelDDFileLogger::doNotReuseLogFiles() { return read(state_->file.doNotReuseLogFiles); }

void TavrelDDFileLogger::setDoNotReuseLogFiles(bool doNotReuse) {
  performOnLoggerQueue([&] { state_->file.doNotReuseLogFiles = doNotReuse; });
}

bool TavrelDDFileLogger::automaticallyAppendNewlineForCustomFormatters() {
  return read(state_->automaticallyAppendNewlineForCustomFormatters);
}

void TavrelDDFileLogger::setAutomaticallyAppendNewlineForCustomFormatters(bool append) {
  performOnLoggerQueue([&] { state_->automaticallyAppendNewlineForCustomFormatters = append; });
}

std::optional<TavrelDDLogFileInfo> TavrelDDFileLogger::currentLogFileInfo() {
  std::optional<TavrelDDLogFileInfo> info;
  performOnLoggerQueue([&] {
    if (state_->file.open()) info = TavrelDDLogFileInfo(state_->file.info()->filePath());
  });
  return info;
}

int TavrelDDFileLogger::currentLogFileHandle() {
  int fileDescriptor = -1;
  performOnLoggerQueue([&] {
    if (state_->file.open()) fileDescriptor = state_->file.file()->fileDescriptor();
  });
  return fileDescriptor;
}

void TavrelDDFileLogger::rollLogFileWithCompletionBlock(std::function<void()> completion) {
  TavrelDDLog::loggingQueue()->async([self = shared_from_this(), completion = std::move(completion)]() mutable {
    const auto queue = self->loggerQueue();
    queue->async([self = std::move(self), completion = std::move(completion)] {
      self->state_->file.roll();
      if (completion) DispatchQueue::global()->async(completion);
    });
  });
}

void TavrelDDFileLogger::maybeRollLogFileDueToAge() {
  performOnLoggerQueue([this] { rollOrWait(); });
}

void TavrelDDFileLogger::maybeRollLogFileDueToSize() {
  performOnLoggerQueue([this] { state_->file.rollIfTooLarge(); });
}

void TavrelDDFileLogger::rollOrWait() {
  if (!state_->file.rollIfTooOld()) startRollingTimer();
}

void TavrelDDFileLogger::startRollingTimer() {
  State& state = *state_;
  const double frequency = state.file.rollingFrequency;
  if (frequency <= 0) return;
  const double left = std::clamp(frequency - state.file.info()->age(), kShortestSleep, kLongestSleep);
  const auto delay = std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(left));
  const auto due = SteadyClock::now() + delay;
  // A timer that fires earlier sets itself again; so files that are completed quickly leave no row of timers behind.
  if (state.rollingTimer && *state.rollingTimer <= due) return;
  state.rollingTimer = due;
  loggerQueue()->asyncAfter(delay, [weak = weak_from_this(), number = ++state.timerNumber] {
    const auto self = weak.lock();
    if (!self || self->state_->timerNumber != number) return;
    self->state_->rollingTimer.reset();
    self->rollOrWait();
  });
}

void TavrelDDFileLogger::logMessage(const TavrelDDLogMessage& message) {
  State& state = *state_;
  if (state.process != processNumber) state.startAfresh();
  const fmt::format_int lineNumber(message.line());
  const auto& formatter = currentFormatter();
  const auto* const asDefault = dynamic_cast<const TavrelDDLogFileFormatterDefault*>(formatter.get());
  const bool isDefault = asDefault != nullptr;
  const bool isItsOwn = isDefault && typeid(*asDefault) == typeid(TavrelDDLogFileFormatterDefault);
  const unsigned level = isDefault ? TavrelDDLevelOfFlag(message.flag()) : message.level();
  const std::string result = formatter && !isItsOwn ? formatter->formatLogMessage(message) : std::string();
  const std::string_view ending = isItsOwn ? TavrelDDLogFileFormatterDefault::timeOf(message) : result;
  std::string& line = state.line;
  concatenate(line, state.lineStart, message.threadID(), "] "sv, TavrelDDNameOfLevel(level), " "sv, message.tag(),
              " "sv, message.message(), " "sv, message.function(), " "sv, message.lastPathComponent(), ":"sv,
              std::string_view(lineNumber.data(), lineNumber.size()), formatter ? " "sv : ""sv, ending);
  const bool appendsNewline = !formatter || isDefault || state.automaticallyAppendNewlineForCustomFormatters;
  if (appendsNewline && line.back() != '\n') line += '\n';
  state.file.add(utf8Of(line, state.encodedLine), message.timestamp());
}

void TavrelDDFileLogger::finishHandOver() { state_->file.write(); }

void TavrelDDFileLogger::flush() { state_->file.synchronise(); }

void TavrelDDFileLogger::willRemoveLogger() { state_->file.close(); }

}  // namespace tavrel
