#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

/// Enlarges the middle of frames, which keep their size, for cameras without a zoom of their own: by the cubic
/// convolution of R. Keys (https://doi.org/10.1109/TASSP.1981.1163711), a = -1/2, in nine samples.
class CameraZoomFilter : public TavrelGPUImageFilter {
 public:
  CameraZoomFilter();

  /// How many times, from 1, which copies the frame.
  void setFactor(double factor) { setFloat(static_cast<GLfloat>(1 / factor), "part"); }
  void setupFilterForSize(Size size) override { setSize(size, "pixels"); }
};

}  // namespace tavrel
