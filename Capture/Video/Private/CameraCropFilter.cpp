#include "Capture/Video/Private/CameraCropFilter.h"

#include <cmath>

namespace tavrel {
namespace {

Size wholePixels(Size size) {
  return {std::round(size.width), std::round(size.height)};
}

}  // namespace

CameraCropFilter::CameraCropFilter() = default;

CameraCropFilter::~CameraCropFilter() = default;

Size CameraCropFilter::outputSizeFor(Size inputSize) const {
  return wholePixels(TavrelGPUImageCropFilter::outputSizeFor(inputSize));
}

void CameraCropFilter::setInputSize(Size newSize, Index) {
  if (preventRendering()) return;
  const Size cropped = outputSizeFor(newSize);
  setInputTextureSize(overrideInputSize() ? wholePixels(inputSizeUnderOverride(cropped)) : cropped);
  setupFilterForSize(sizeOfFBO());
}

}  // namespace tavrel
