#include "Effects/TavrelCaptureEffect.h"

#include <utility>

namespace tavrel {

TavrelCaptureEffect::~TavrelCaptureEffect() = default;

TavrelCaptureEffectNodes TavrelCaptureEffect::makeNodes(Size) {
  return {};
}

bool TavrelCaptureEffect::applyChange(std::string_view, const TavrelCaptureEffectNodes&) {
  return false;
}

Size TavrelCaptureEffect::sizeAfter(Size frameSize) const {
  return frameSize;
}

std::shared_ptr<PixelBuffer> TavrelCaptureEffect::prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                               const SampleTiming&, MediaTime) {
  return pixelBuffer;
}

TavrelCaptureEffect::ChangeObserverToken TavrelCaptureEffect::addChangeObserver(ChangeObserver observer) {
  return observers_.add({}, std::move(observer));
}

void TavrelCaptureEffect::removeChangeObserver(ChangeObserverToken token) {
  observers_.remove(token);
}

void TavrelCaptureEffect::announceChange(std::string_view property) {
  observers_.notify([](EveryChange) { return true; }, property);
}

}  // namespace tavrel
