#include "TavrelBase/Log/TavrelDDTTYLogger.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

#include "Platform/Foundation/ConsoleWriter.h"
#include "Platform/Foundation/Environment.h"
#include "TavrelBase/Log/Private/AppendUtf8.h"
#include "TavrelBase/Log/Private/LogTimeText.h"
#include "TavrelBase/Log/TavrelDDLogLevel.h"

namespace tavrel {
namespace {

constexpr std::size_t kLargestGathering = std::size_t{64} * 1024;

std::string_view colourOf(unsigned flag) {
  switch (flag) {
    case TavrelDDLogFlagError: return "\033[31m";
    case TavrelDDLogFlagWarning: return "\033[33m";
    case TavrelDDLogFlagDebug: return "\033[90m";
    case TavrelDDLogFlagVerbose: return "\033[2m";
    default: return "";
  }
}

}  // namespace

struct TavrelDDTTYLogger::Implementation {
  explicit Implementation(int fileDescriptor) : console(fileDescriptor) {}

  ConsoleWriter console;
  const bool isColoured = isatty(console.fileDescriptor()) != 0 && !environmentVariable("NO_COLOR");
  LogTimeText time{LogTimeText::Zone::local, "{:%Y-%m-%d %H:%M:%S}", '.'};
  std::string pending;  // lines that were not written yet
};

const std::shared_ptr<TavrelDDTTYLogger>& TavrelDDTTYLogger::sharedInstance() {
  static const auto& instance = *new auto(std::make_shared<TavrelDDTTYLogger>(STDERR_FILENO));
  return instance;
}

TavrelDDTTYLogger::TavrelDDTTYLogger(int fileDescriptor)
    : implementation_(std::make_unique<Implementation>(fileDescriptor)) {}

TavrelDDTTYLogger::~TavrelDDTTYLogger() = default;

void TavrelDDTTYLogger::logMessage(const TavrelDDLogMessage& message) {
  std::string& pending = implementation_->pending;
  const std::string_view colour = implementation_->isColoured ? colourOf(message.flag()) : std::string_view();
  fmt::format_to(std::back_inserter(pending), "{}{} {}[{}] {} ", colour,
                 implementation_->time.text(message.timestamp()), program_invocation_short_name, getpid(),
                 TavrelDDNameOfLevel(TavrelDDLevelOfFlag(message.flag())));
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
  implementation_->console.write(pending);
  pending.clear();
  if (pending.capacity() > 2 * kLargestGathering) pending.shrink_to_fit();
}

}  // namespace tavrel
