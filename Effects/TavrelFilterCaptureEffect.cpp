#include "Effects/TavrelFilterCaptureEffect.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

struct TavrelFilterCaptureEffect::Implementation {
  std::shared_ptr<TavrelGPUImageFilter> filter;
};

TavrelFilterCaptureEffect::TavrelFilterCaptureEffect(std::shared_ptr<TavrelGPUImageFilter> filter)
    : implementation_(new Implementation{std::move(filter)}) {}

TavrelFilterCaptureEffect::TavrelFilterCaptureEffect(const TavrelFilterCaptureEffect& source)
    : TavrelCaptureEffect(source), implementation_(std::make_unique<Implementation>(*source.implementation_)) {}

TavrelFilterCaptureEffect::~TavrelFilterCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelFilterCaptureEffect>(*this);
}

const std::shared_ptr<TavrelGPUImageFilter>& TavrelFilterCaptureEffect::filter() const {
  return implementation_->filter;
}

void TavrelFilterCaptureEffect::setFilter(std::shared_ptr<TavrelGPUImageFilter> filter) {
  changeProperty(implementation_->filter, std::move(filter), "filter");
}

TavrelCaptureEffectNodes TavrelFilterCaptureEffect::makeNodes(Size) {
  if (!filter()) return {};
  return {.filters = {filter()}, .pictures = {}};
}

Size TavrelFilterCaptureEffect::sizeAfter(Size frameSize) const {
  return filter() ? filter()->outputSizeFor(frameSize) : frameSize;
}

}  // namespace tavrel
