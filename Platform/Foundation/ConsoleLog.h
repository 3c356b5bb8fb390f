#pragma once

#include <fmt/core.h>

#include <functional>
#include <string_view>
#include <utility>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The process's plain console: one line on standard error for each message, with the local time and its zone, program
/// and process number in front. The graph writes its diagnostics here; capture code uses the log facade instead. Any
/// thread. Lines stay whole. Whatever standard error is, the caller is held up for a second at most, once: what nobody
/// takes then is lost, and a line says how much.
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
  /// is inside the earlier sink any more. The sink must not write to the console itself.
  static void setSink(Sink sink);
};

}  // namespace tavrel
