#include "Platform/Foundation/ConsoleLog.h"

#include <fmt/chrono.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <mutex>

namespace tavrel {
namespace {

struct SinkHolder {
  std::mutex mutex;
  ConsoleLog::Sink sink;
};

// Never destroyed: messages may still come from objects that are destroyed late in the process.
SinkHolder& sinkHolder() {
  static auto* holder = new SinkHolder;
  return *holder;
}

}  // namespace

void ConsoleLog::write(std::string_view message) {
  SinkHolder& holder = sinkHolder();
  const std::lock_guard lock(holder.mutex);
  if (holder.sink) {
    holder.sink(message);
    return;
  }
  const auto now = std::chrono::system_clock::now();
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::string line =
      fmt::format("{:%F %T}.{:03} {}[{}] {}\n", fmt::localtime(std::chrono::system_clock::to_time_t(now)), milliseconds,
                  program_invocation_short_name, getpid(), message);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void ConsoleLog::setSink(Sink sink) {
  SinkHolder& holder = sinkHolder();
  const std::lock_guard lock(holder.mutex);
  holder.sink = std::move(sink);
}

}  // namespace tavrel
