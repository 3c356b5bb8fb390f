#include "Effects/TavrelCaptureEffect.h"

#include <algorithm>
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

std::optional<Rect> TavrelCaptureEffect::inputFor(const Rect&, Size) const { return std::nullopt; }

TavrelCaptureEffectPart TavrelCaptureEffect::onPart(const Rect& input, Size) const { return {nullptr, input}; }

Rect TavrelCaptureEffect::grown(const Rect& part, double margin, Size frameSize) {
  const Point first = {std::max(0.0, part.minX() - margin), std::max(0.0, part.minY() - margin)};
  const Point last = {std::min(frameSize.width, part.maxX() + margin),
                      std::min(frameSize.height, part.maxY() + margin)};
  return {first, {last.x - first.x, last.y - first.y}};
}

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
