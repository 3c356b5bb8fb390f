#pragma once

#include <fmt/core.h>

#include <string_view>
#include <utility>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Stops the program: writes "*** Assertion failure: TEXT" to standard error and to the open log files, and aborts. For
/// programming errors only; expected failures are returned. Any thread.
[[noreturn]] TAVREL_API void fatalAssertion(std::string_view text);

/// The same with a format of fmt.
template <typename... Args>
requires(sizeof...(Args) > 0) [[noreturn]] void fatalAssertion(fmt::format_string<Args...> format, Args&&... args) {
  fatalAssertion(std::string_view(fmt::format(format, std::forward<Args>(args)...)));
}

}  // namespace tavrel
