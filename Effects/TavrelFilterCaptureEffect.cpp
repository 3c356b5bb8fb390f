#include "Effects/TavrelFilterCaptureEffect.h"

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

TavrelCaptureEffectNodes TavrelFilterCaptureEffect::makeNodes(Size) {
  if (!filter_) return {};
  return {.filters = {filter_}, .pictures = {}};
}

Size TavrelFilterCaptureEffect::sizeAfter(Size frameSize) const {
  return filter_ ? filter_->outputSizeFor(frameSize) : frameSize;
}

}  // namespace tavrel
