#include "Effects/TavrelFilterCaptureEffect.h"

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

std::shared_ptr<TavrelCaptureEffect> TavrelFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelFilterCaptureEffect>(*this);
}

void TavrelFilterCaptureEffect::setFilter(std::shared_ptr<TavrelGPUImageFilter> filter) {
  changeValue(filter_, std::move(filter), "filter");
  announceChange("filter");
}

TavrelCaptureEffectNodes TavrelFilterCaptureEffect::makeNodes(Size) {
  if (!filter_) return {};
  return {.filters = {filter_}, .pictures = {}};
}

Size TavrelFilterCaptureEffect::sizeAfter(Size frameSize) const {
  return filter_ ? filter_->outputSizeFor(frameSize) : frameSize;
}

}  // namespace tavrel
