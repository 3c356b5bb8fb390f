#pragma once

#include <cstdint>
#include <string>
#include <tl/expected.hpp>

namespace tavrel {

/// What went wrong, as a code and as text. `description` says what was wrong and, where possible, what would be right.
struct Error {
  std::string domain;       ///< the source: "posix", "graphics", "imaging", "media", "capture" …
  std::int64_t code = 0;    ///< defined by the domain; never 0 for a failure
  std::string description;  ///< one sentence without a full stop
};

/// A value, or the error that prevented it.
template <typename T>
using Expected = tl::expected<T, Error>;

/// The result of a function that fails: `return failure("media", code, "cannot open …");`
inline tl::unexpected<Error> failure(std::string domain, std::int64_t code, std::string description) {
  return tl::unexpected<Error>(Error{std::move(domain), code, std::move(description)});
}

}  // namespace tavrel
