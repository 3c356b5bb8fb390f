#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// Codes of errors in the domain "ui". The numbers are stable.
enum class UIStatus : std::int64_t {
  shadersRefused = 1,      ///< the driver fails to link the compositor's shaders
  contextUnavailable = 2,  ///< the compositor's GL context cannot be made current
  allocationFailed = 3,    ///< GL has no memory for an image of this size
  invalidSize = 4,         ///< the size of an image or window is empty or too large
  noWindowSystem = 10,     ///< no window system can be reached, or it is disabled or not built in
  headlessInUse = 11,      ///< GL already uses a headless display
  graphicsRefused = 12,    ///< the window system offers no OpenGL ES 2.0 context that the graph can share
  windowRefused = 13       ///< the window system refused a window
};

constexpr const char* errorDomain(UIStatus) { return "ui"; }

}  // namespace tavrel
