#pragma once

#include <array>
#include <cstdint>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Capture/Virtual/VirtualScene.h"

namespace tavrel {

/// What lens, sensor and torch do to a picture. One thread at a time; its scratch memory is kept.
class VirtualOptics {
 public:
  /// Scales the centre of `source` so that it fills `destination`, aspect kept, `zoom` times enlarged.
  static void scaleToFill(const BgraCanvas& source, double zoom, const BgraCanvas& destination);
  /// Blurs as `frame.focus` says, in place.
  void blur(const BgraCanvas& canvas, const VirtualFrame& frame);
  /// Brightens or darkens as torch and exposure say, in place.
  static void expose(const BgraCanvas& canvas, const VirtualFrame& frame);
  /// How wide the blur is, in pixels of a picture of that height; 0 in focus.
  static double blurRadius(int height, const VirtualFrame& frame);
  /// What `expose` makes of one component.
  static std::uint8_t exposed(std::uint8_t component, const VirtualFrame& frame);

 private:
  BgraPicture small_;
};

}  // namespace tavrel
