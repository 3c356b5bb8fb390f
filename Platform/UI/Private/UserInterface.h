#pragma once

#include <string>
#include <utility>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// Connects the process to the window system at the first call, and asks again after a failure. Fails ("ui") when there
/// is none to be had, and always in a library that was built without windows. Main thread.
Expected<void> startUserInterface();

/// An error of the domain "ui" about what the window system refuses.
inline tl::unexpected<Error> windowSystemFailure(std::string description) {
  constexpr std::int64_t kNoWindow = 10;
  return failure("ui", kNoWindow, std::move(description));
}

}  // namespace tavrel
