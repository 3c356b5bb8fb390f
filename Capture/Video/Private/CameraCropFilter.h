#pragma once

#include <cmath>

#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"

namespace tavrel {

/// A crop filter that keeps the proportions of what it cuts out when a size is forced on it, also at the end of the
/// chain, where a plain one takes those of its input. Sizes are whole pixels, however the region was rounded.
class CameraCropFilter : public TavrelGPUImageCropFilter {
 public:
  CameraCropFilter() { allowFusion(); }

  Size outputSizeFor(Size inputSize) const override {
    return wholePixels(TavrelGPUImageCropFilter::outputSizeFor(inputSize));
  }
  void setInputSize(Size newSize, Index) override {
    if (preventRendering()) return;
    const Size cropped = outputSizeFor(newSize);
    setInputTextureSize(overrideInputSize() ? wholePixels(inputSizeUnderOverride(cropped)) : cropped);
    setupFilterForSize(sizeOfFBO());
  }

 private:
  static Size wholePixels(Size size) { return {std::round(size.width), std::round(size.height)}; }
};

}  // namespace tavrel
