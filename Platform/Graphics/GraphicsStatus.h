#pragma once

#include <cstdint>

namespace tavrel {

/// The codes of errors in the domain "graphics" (`Error::code`). Stable numbers: they appear in assertion texts.
enum class GraphicsStatus : std::int64_t {
  displayUnavailable = -1,    ///< no EGL display could be opened
  contextUnavailable = -2,    ///< the driver refused a context, or none could be made current
  invalidArgument = -3,       ///< a null object, a plane that does not exist
  invalidSize = -4,           ///< zero, too large, or not the size of the buffer or plane
  invalidPixelFormat = -5,    ///< not one of `PixelFormat`
  incompatibleFormat = -6,    ///< texture formats that do not fit the pixel format
  allocationFailed = -7,      ///< no memory left
  graphicsCommandFailed = -8  ///< GL reported an error
};

}  // namespace tavrel
