#pragma once

#include <cstdlib>
#include <optional>
#include <string_view>

namespace tavrel {

/// The value of the environment variable; nothing if it is not set. Valid, and safe on any thread, until the
/// environment is changed; the library does not change it.
inline std::optional<std::string_view> environmentVariable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  if (!value) return std::nullopt;
  return value;
}

}  // namespace tavrel
