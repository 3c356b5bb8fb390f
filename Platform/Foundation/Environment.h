#pragma once

#include <cstdlib>
#include <optional>
#include <string_view>

namespace tavrel {

/// What the environment variable says; nothing when it is not set. Any thread, as long as nobody writes the
/// environment; the library does not. Valid until somebody does.
inline std::optional<std::string_view> environmentVariable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  if (!value) return std::nullopt;
  return value;
}

}  // namespace tavrel
