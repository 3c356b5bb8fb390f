#include "TavrelBase/Log/TavrelDDTTYLogger.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

#include "Platform/Foundation/Environment.h"
#include "TavrelBase/Log/Private/AppendUtf8.h"
#include "TavrelBase/Log/Private/LogTimeText.h"
#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {
namespace {

constexpr std::size_t kLargestGathering = std::size_t{64} * 1024;

struct Kind {
  unsigned flag;
  unsigned level;  // whose name stands in the line
  std::string_view colour;
};

constexpr Kind kKinds[] = {
    {TavrelDDLogFlagError, TavrelDDLogLevelError, "\033[31m"},
    {TavrelDDLogFlagWarning, TavrelDDLogLevelWarning, "\033[33m"},
    {TavrelDDLogFlagInfo, TavrelDDLogLevelInfo, ""},
    {TavrelDDLogFlagDebug, TavrelDDLogLevelDebug, "\033[90m"},
    {TavrelDDLogFlagVerbose, TavrelDDLogLevelVerbose, "\033[2m"},
};
constexpr Kind kOtherKind = {0, TavrelDDLogLevelOff, ""};

const Kind& kindOf(unsigned flag) {
  for (const Kind& kind : kKinds) {
    if (kind.flag == flag) return kind;
  }
  return kOtherKind;
}

void writeAll(int fileDescriptor, std::string_view text) {
  constexpr int kPatience = 1000;
  while (!text.empty()) {
    const ssize_t count = ::write(fileDescriptor, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd waiting = {fileDescriptor, POLLOUT, 0};
      if (poll(&waiting, 1, kPatience) <= 0) return;
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

struct TavrelDDTTYLogger::Implementation {
  explicit Implementation(int newFileDescriptor) : fileDescriptor(newFileDescriptor) {}

  const int fileDescriptor;
  const bool isColoured = isatty(fileDescriptor) != 0 && !environmentVariable("NO_COLOR");
  LogTimeText time{LogTimeText::Zone::local, "{:%Y-%m-%d %H:%M:%S}", '.'};
  std::string pending;  // lines that were not written yet
};

const std::shared_ptr<TavrelDDTTYLogger>& TavrelDDTTYLogger::sharedInstance() {
  static const auto instance = std::make_shared<TavrelDDTTYLogger>(STDERR_FILENO);
  return instance;
}

TavrelDDTTYLogger::TavrelDDTTYLogger(int fileDescriptor)
    : implementation_(std::make_unique<Implementation>(fileDescriptor)) {}

TavrelDDTTYLogger::~TavrelDDTTYLogger() = default;

void TavrelDDTTYLogger::logMessage(const TavrelDDLogMessage& message) {
  std::string& pending = implementation_->pending;
  const Kind& kind = kindOf(message.flag());
  const std::string_view colour = implementation_->isColoured ? kind.colour : std::string_view();
  fmt::format_to(std::back_inserter(pending), "{}{} {}[{}] {} ", colour,
                 implementation_->time.text(message.timestamp()), program_invocation_short_name, getpid(),
                 TavrelDDNameOfLevel(kind.level));
  if (const auto& formatter = currentFormatter()) {
    appendUtf8(pending, formatter->formatLogMessage(message));
  } else {
    appendUtf8(pending, message.tag());
    pending += ": ";
    appendUtf8(pending, message.message());
  }
  if (!colour.empty()) pending += "\033[0m";
  if (pending.back() != '\n') pending += '\n';
  if (pending.size() >= kLargestGathering) finishHandOver();
}

void TavrelDDTTYLogger::finishHandOver() {
  std::string& pending = implementation_->pending;
  if (pending.empty()) return;
  writeAll(implementation_->fileDescriptor, pending);
  pending.clear();
  if (pending.capacity() > 2 * kLargestGathering) pending.shrink_to_fit();
}

}  // namespace tavrel
