#pragma once

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavrel::tool {

/// Exit statuses.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kBadUsage = 2;

/// Invalid options; the text says what would be right.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Prints a line for the user.
template <typename... Args>
void say(fmt::format_string<Args...> format, Args&&... args) {
  fmt::print(stderr, "tavrel: {}\n", fmt::format(format, std::forward<Args>(args)...));
}

/// Prints why the command failed. Returns the exit status.
template <typename... Args>
[[nodiscard]] int fail(fmt::format_string<Args...> format, Args&&... args) {
  say(format, std::forward<Args>(args)...);
  return kFailure;
}

/// Prints a result for programs, as one line on standard output.
void printJson(const nlohmann::ordered_json& result);

/// A progress bar on standard error, as wide as the terminal allows; nothing if that is not a terminal.
class ProgressBar {
 public:
  /// `fraction` in 0…1.
  void show(double fraction, std::string_view caption);
  /// Removes the bar.
  void clear();
  ~ProgressBar() { clear(); }

 private:
  const bool isTerminal_ = isatty(STDERR_FILENO) != 0;
  bool isShown_ = false;
};

}  // namespace tavrel::tool
