#pragma once

#include <cstdint>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

class PixelBuffer;

/// One frame to draw: its time and the values of the camera's controls.
struct VirtualFrame {
  std::uint32_t frameNumber = 0;    ///< from 0 at the start; dropped frames count
  double sceneTime = 0;             ///< seconds since the start
  double frameDuration = 1.0 / 30;  ///< seconds until the next frame
  double torchLevel = 0;            ///< 0 off … 1 full; brightens
  double zoom = 1;                  ///< 1 or more; scales about the centre
  double focus = 1;                 ///< 1 sharp … 0 far out of focus; blurs
  double exposure = 1;              ///< brightness factor
};

/// What a virtual camera sees. One thread at a time.
class TAVREL_API VirtualScene {
 public:
  virtual ~VirtualScene() = default;

  /// Called before frames of this size come, which take their time from then on: for what takes longer than a frame.
  virtual void prepare(int /*width*/, int /*height*/) {}
  /// Fills `buffer` (BGRA, at least 16×16) with opaque pixels. Fails if the scene cannot draw this frame.
  virtual Expected<void> render(PixelBuffer& buffer, const VirtualFrame& frame) = 0;
};

}  // namespace tavrel
