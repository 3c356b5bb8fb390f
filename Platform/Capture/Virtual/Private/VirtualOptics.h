#pragma once

#include <array>
#include <cstdint>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Capture/Virtual/VirtualScene.h"

namespace tavrel {

/// What lens, sensor and torch make of a picture. One thread at a time; its memory is kept.
class VirtualOptics {
 public:
  /// `source` as the camera sees it: its centre fills the given size, aspect kept, enlarged by the zoom, blurred and
  /// exposed as `frame` says. Valid until the next call. The work is done again only when something other than the
  /// frame's time has changed; `isNew` says that the source's pixels have.
  BgraCanvas see(const BgraCanvas& source, bool isNew, int width, int height, const VirtualFrame& frame);

  /// How wide the blur is, in pixels of a picture of that height; 0 in focus.
  static double blurRadius(int height, const VirtualFrame& frame);
  /// What exposure and torch make of one component.
  static std::uint8_t exposed(std::uint8_t component, const VirtualFrame& frame);

 private:
  void blur(const VirtualFrame& frame);
  void expose(const VirtualFrame& frame);

  BgraPicture seen_;
  BgraPicture small_;
  VirtualFrame controls_;
};

}  // namespace tavrel
