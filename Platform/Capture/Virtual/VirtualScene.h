#pragma once

#include <cstdint>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

class PixelBuffer;

/// One frame to draw: its place on the time line, and how the camera's controls stand.
struct VirtualFrame {
  std::uint32_t frameNumber = 0;    ///< counted from 0 at the start; numbers of dropped frames are left out
  double sceneTime = 0;             ///< seconds since the start
  double frameDuration = 1.0 / 30;  ///< seconds until the next frame
  double torchLevel = 0;            ///< 0 off … 1 full: brightens
  double zoom = 1;                  ///< 1 or more: scales about the centre
  double focus = 1;                 ///< 1 sharp … 0 far out of focus: blurs
  double exposure = 1;              ///< factor on the brightness, 1 as it is
};

/// What a virtual camera looks at. One thread at a time.
class TAVREL_API VirtualScene {
 public:
  virtual ~VirtualScene() = default;

  /// Draws the whole of `buffer` (BGRA, any size from 16×16), opaque. A scene that cannot draw this frame says why.
  virtual Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) = 0;
};

}  // namespace tavrel
