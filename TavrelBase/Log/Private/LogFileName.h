#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tavrel {

/// The parts of a log file's name: "APPLICATION yyyy-MM-dd HH-mm.log", or "APPLICATION yyyy-MM-dd HH-mm 2.log" for the
/// second file of the same minute. Times are UTC.
struct LogFileName {
  std::string_view application;
  std::chrono::system_clock::time_point minute;
  unsigned number = 1;

  static std::string make(std::string_view application, std::chrono::system_clock::time_point time);
  /// `name` with a number of 2 or more before the extension.
  static std::string numbered(std::string_view name, unsigned number);
  /// Nothing when `name` is not such a name. The application's name is a view into `name`.
  static std::optional<LogFileName> parse(std::string_view name);
};

}  // namespace tavrel
