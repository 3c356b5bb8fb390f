#pragma once

#include <fmt/format.h>

#include <utility>

#include "Platform/Foundation/Error.h"
#include "Platform/UI/UIStatus.h"

namespace tavrel {

/// An error of the domain "ui", with a text in fmt's syntax.
template <typename... Args>
tl::unexpected<Error> uiFailure(UIStatus status, fmt::format_string<Args...> format, Args&&... args) {
  return failure("ui", static_cast<std::int64_t>(status), fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace tavrel
