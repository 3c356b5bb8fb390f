#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <vector>

#include "Support/GraphTestSupport.h"

// What filters should give, computed on the CPU in double precision from the mathematics.

namespace tavrel::test {

/// Red, green, blue, alpha in 0…1.
using Rgba = std::array<double, 4>;

/// Hard edges, fine noise and, with `hasAlpha`, any alpha; the same each time. Components are at least `darkest`.
Picture noisePicture(int width, int height, bool hasAlpha, int darkest = 0);

/// A picture in full precision.
struct ReferencePicture {
  int width = 0;
  int height = 0;
  std::vector<Rgba> colors;

  ReferencePicture(int width, int height, const std::function<Rgba(int x, int y)>& color);
  explicit ReferencePicture(const Picture& picture);

  /// The pixel, or the nearest one inside.
  const Rgba& clampedAt(int x, int y) const;
  /// Linear between pixel centres, at coordinates of 0…1.
  Rgba sampled(double s, double t) const;
  /// As a producer with this rotation shows it.
  ReferencePicture turned(TavrelGPUImageRotationMode mode) const;
};

/// How far a picture is from what it should be, in steps of 1/255.
struct PictureError {
  double largest = 0;
  double rms = 0;
};
PictureError errorOf(const Picture& picture, const ReferencePicture& reference);

/// Succeeds when no component is off by more than 2/255 and the RMS is at most 0.6/255; the reason otherwise.
::testing::AssertionResult matches(const Picture& picture, const ReferencePicture& reference);

}  // namespace tavrel::test
