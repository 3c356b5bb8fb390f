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

void CameraCropFilter::setInputSize(Size newSize, Index atIndex) {
  if (preventRendering()) return;
  const Size turned = rotatedSize(newSize, atIndex);
  const Size region = cropRegion().size;
  const Size cropped = wholePixels({turned.width * region.width, turned.height * region.height});
  setInputTextureSize(overrideInputSize() ? wholePixels(inputSizeUnderOverride(cropped)) : cropped);
  setupFilterForSize(sizeOfFBO());
}

}  // namespace tavrel
