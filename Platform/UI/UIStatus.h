#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// The codes of errors in the domain "ui" (`Error::code`). Stable numbers.
enum class UIStatus : std::int64_t {
  shadersRefused = 1,      ///< the driver does not link the compositor's shaders
  contextUnavailable = 2,  ///< the compositor's GL context cannot be made current
  allocationFailed = 3,    ///< GL has no memory for a picture of this size
  invalidSize = 4,         ///< an image or a window without a point, or too large
  noWindowSystem = 10,     ///< none can be reached, wanted or served by this build
  headlessInUse = 11,      ///< GL already uses a headless display, which windows cannot show
  graphicsRefused = 12,    ///< the window system gives no OpenGL ES 2.0 that the graph could share
  windowRefused = 13       ///< the window system gives no window
};

constexpr const char* errorDomain(UIStatus) { return "ui"; }

}  // namespace tavrel
