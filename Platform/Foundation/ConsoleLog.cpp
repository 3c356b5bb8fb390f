#include "Platform/Foundation/ConsoleLog.h"

#include <fmt/chrono.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>

#include "Platform/Foundation/ConsoleWriter.h"

namespace tavrel {
namespace {

struct SinkHolder {
  std::mutex mutex;
  ConsoleLog::Sink sink;
  ConsoleWriter standardError{STDERR_FILENO};
};

// Never destroyed: messages may still come from objects that are destroyed late in the process.
SinkHolder& sinkHolder() {
  static auto* holder = new SinkHolder;
  return *holder;
}

/// So that a child does not find the lock held by a thread that it does not have.
[[maybe_unused]] const int forksAreWatched = pthread_atfork(
    [] { sinkHolder().mutex.lock(); }, [] { sinkHolder().mutex.unlock(); }, [] { sinkHolder().mutex.unlock(); });

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
  const std::tm parts = fmt::localtime(std::chrono::system_clock::to_time_t(now));
  holder.standardError.write(fmt::format("{:%F %T}.{:03} {:%z} {}[{}] {}\n", parts, milliseconds, parts,
                                         program_invocation_short_name, getpid(), message));
}

void ConsoleLog::setSink(Sink sink) {
  SinkHolder& holder = sinkHolder();
  const std::lock_guard lock(holder.mutex);
  holder.sink = std::move(sink);
}

}  // namespace tavrel
