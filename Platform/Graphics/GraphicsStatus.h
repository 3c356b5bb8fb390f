#pragma once

#include <cstdint>

namespace tavrel {

/// Codes of errors in the domain "graphics". The numbers are stable; they appear in assertion texts.
enum class GraphicsStatus : std::int64_t {
  displayUnavailable = -1,    ///< no EGL display could be opened
  contextUnavailable = -2,    ///< the driver refused a context, or none could be made current
  invalidArgument = -3,       ///< a null object, or a plane that does not exist
  invalidSize = -4,           ///< zero, too large, or not the size of the buffer or plane
  invalidPixelFormat = -5,    ///< not one of `PixelFormat`
  incompatibleFormat = -6,    ///< the texture format does not match the pixel format
  allocationFailed = -7,      ///< out of memory
  graphicsCommandFailed = -8  ///< GL reported an error
};

}  // namespace tavrel
