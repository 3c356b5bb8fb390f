#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// Brings an input to the size at which it is drawn where samplers would not do: they leave out pixels of what is much
/// reduced, and show the corners of what is much enlarged. Reduced it is by a triangle two pixels of the output wide,
/// enlarged by a bicubic where `TavrelGPUImageContext::scaling` says so. A still is scaled once. On the
/// video-processing queue.
class InputScaling {
 public:
  static constexpr double kLeastReduction = 1.5;
  static constexpr double kLeastEnlargement = 2;

  /// Corners' texture coordinates: bottom-left, bottom-right, top-left, top-right.
  using Corners = std::array<GLfloat, 8>;
  /// What to draw instead of the input.
  struct Scaled {
    TavrelGPUImageFramebufferLease framebuffer;
    Corners corners{};
  };

  /// nullptr when the part between `corners`, whose sides are parallel to the texture's, can be drawn as it is, `drawn`
  /// pixels across and up. Otherwise another program and framebuffer may be in use afterwards.
  const Scaled* scale(const TavrelGPUImageFramebufferLease& input, const GLfloat* corners, Size drawn);
  /// Ends the use of what `scale` gave, which is kept for the next frame if the input is a still.
  void letGo();

 private:
  /// What of which still was scaled how.
  struct Wish {
    std::uint64_t still = 0;
    Corners corners{};
    Size drawn;
    TavrelGPUImageScaling scaling;
    bool operator==(const Wish&) const = default;
  };
  enum Kind { triangle, triangleFromLight, bicubic, bicubicFromLight, toLight, kinds };
  struct Program {
    QuadProgram quad;
    GLint size = -1, reach = -1, count = -1;
  };

  void draw(Kind kind, const TavrelGPUImageFramebufferLease& input, const Rect& part, Size scale, const Size& size);
  const Program& program(Kind kind);

  std::array<Program, kinds> programs_;
  TavrelGPUImageFramebufferLease drawn_;
  Wish wish_;
  std::optional<Scaled> scaled_;
};

}  // namespace tavrel
