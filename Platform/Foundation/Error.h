#pragma once

#include <cstdint>
#include <string>
#include <tl/expected.hpp>

namespace tavrel {

/// What went wrong, for people and for programs. Codes of the libraries below are turned into text at the platform's
/// boundary, so that `description` says what was wrong and, where it can, what would be right.
struct Error {
  std::string domain;       ///< who reports: "posix", "graphics", "imaging", "media", "capture" …
  std::int64_t code = 0;    ///< meaning depends on the domain; never 0 for a failure
  std::string description;  ///< one sentence, without a final full stop
};

/// A value or the reason why there is none.
template <typename T>
using Expected = tl::expected<T, Error>;

/// Returned by functions that fail: `return failure("media", code, "cannot open …");`
inline tl::unexpected<Error> failure(std::string domain, std::int64_t code, std::string description) {
  return tl::unexpected<Error>(Error{std::move(domain), code, std::move(description)});
}

}  // namespace tavrel
