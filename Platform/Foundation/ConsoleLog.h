#pragma once

#include <fmt/core.h>

#include <functional>
#include <string_view>
#include <utility>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Writes each message as a line to standard error, prefixed with local time and zone, program and process ID. The
/// graph writes its diagnostics here; capture code uses the log instead. Lines are never split. If standard error is
/// blocked, a caller waits at most a second, once; what is lost then is reported in a line. Any thread.
class TAVREL_API ConsoleLog {
 public:
  /// Receives each message without the prefix, on the thread that wrote it.
  using Sink = std::function<void(std::string_view message)>;

  static void write(std::string_view message);

  template <typename... Args>
  requires(sizeof...(Args) > 0) static void write(fmt::format_string<Args...> format, Args&&... args) {
    write(std::string_view(fmt::format(format, std::forward<Args>(args)...)));
  }

  /// Sends messages to `sink` instead of standard error; an empty sink restores standard error. Returns once no thread
  /// is inside the previous sink. The sink must not write to the console.
  static void setSink(Sink sink);
};

}  // namespace tavrel
