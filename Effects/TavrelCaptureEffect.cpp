#include "Effects/TavrelCaptureEffect.h"

#include <utility>

#include "Platform/Foundation/ObserverList.h"

namespace tavrel {
namespace {

struct EveryChange {};

}  // namespace

struct TavrelCaptureEffect::Implementation {
  ObserverList<EveryChange, std::string_view> observers;
};

TavrelCaptureEffect::TavrelCaptureEffect() : implementation_(std::make_unique<Implementation>()) {}

TavrelCaptureEffect::TavrelCaptureEffect(const TavrelCaptureEffect& other)
    : TavrelObject(other), implementation_(std::make_unique<Implementation>()) {}

TavrelCaptureEffect::~TavrelCaptureEffect() = default;

TavrelCaptureEffectNodes TavrelCaptureEffect::makeNodes(Size) { return {}; }

bool TavrelCaptureEffect::applyChange(std::string_view, const TavrelCaptureEffectNodes&) { return false; }

Size TavrelCaptureEffect::sizeAfter(Size frameSize) const { return frameSize; }

std::shared_ptr<PixelBuffer> TavrelCaptureEffect::prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                               const SampleTiming&, MediaTime) {
  return pixelBuffer;
}

TavrelCaptureEffect::ChangeObserverToken TavrelCaptureEffect::addChangeObserver(ChangeObserver observer) {
  return implementation_->observers.add({}, std::move(observer));
}

void TavrelCaptureEffect::removeChangeObserver(ChangeObserverToken token) { implementation_->observers.remove(token); }

void TavrelCaptureEffect::announceChange(std::string_view property) {
  implementation_->observers.notify([](EveryChange) { return true; }, property);
}

}  // namespace tavrel
