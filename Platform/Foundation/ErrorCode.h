#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// An enum of one domain's codes; the function `errorDomain` in its namespace names the domain.
template <typename Code>
concept ErrorCode = std::is_enum_v<Code> && requires(Code code) {
  { errorDomain(code) } -> std::convertible_to<std::string>;
};

template <ErrorCode Code>
Error makeError(Code code, std::string description) {
  return {errorDomain(code), static_cast<std::int64_t>(code), std::move(description)};
}

/// The result of a function that fails: `return failure(MediaErrorCode::emptyMovie, "nothing was appended");`
template <ErrorCode Code>
tl::unexpected<Error> failure(Code code, std::string description) {
  return tl::unexpected<Error>(makeError(code, std::move(description)));
}

/// Whether the error has this code: `if (error == MediaErrorCode::damagedFile) …`
template <ErrorCode Code>
bool operator==(const Error& error, Code code) {
  return error.code == static_cast<std::int64_t>(code) && error.domain == errorDomain(code);
}

}  // namespace tavrel
