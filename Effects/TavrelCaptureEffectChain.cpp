#include "Effects/TavrelCaptureEffectChain.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

struct TavrelCaptureEffectChain::Implementation {
  Effects effects;
  std::vector<TavrelCaptureEffectNodes> nodes;
};

TavrelCaptureEffectChain::TavrelCaptureEffectChain(Effects effects)
    : implementation_(new Implementation{.effects = std::move(effects), .nodes = {}}) {}

TavrelCaptureEffectChain::TavrelCaptureEffectChain(TavrelCaptureEffectChain&& other) noexcept = default;
TavrelCaptureEffectChain& TavrelCaptureEffectChain::operator=(TavrelCaptureEffectChain&& other) noexcept = default;
TavrelCaptureEffectChain::~TavrelCaptureEffectChain() = default;

const TavrelCaptureEffectChain::Effects& TavrelCaptureEffectChain::effects() const { return implementation_->effects; }

Size TavrelCaptureEffectChain::sizeAfter(Size frameSize) const {
  for (const auto& effect : effects()) frameSize = effect->sizeAfter(frameSize);
  return frameSize;
}

bool TavrelCaptureEffectChain::turnsSideways() const {
  constexpr double kSide = 1000;
  return sizeAfter({2 * kSide, kSide}).height > sizeAfter({kSide, kSide}).height;
}

std::shared_ptr<TavrelGPUImageOutput> TavrelCaptureEffectChain::connect(
    const std::shared_ptr<TavrelGPUImageOutput>& source, Size frameSize) {
  implementation_->nodes.clear();
  std::shared_ptr<TavrelGPUImageOutput> last = source;
  for (const auto& effect : effects()) {
    effect->setWaitsForPictures(true);
    const TavrelCaptureEffectNodes& nodes = implementation_->nodes.emplace_back(effect->makeNodes(frameSize));
    for (const auto& filter : nodes.filters) {
      last->addTarget(filter, 0);
      last = filter;
    }
    for (const auto& picture : nodes.pictures) picture->processImage();
    frameSize = effect->sizeAfter(frameSize);
  }
  return last;
}

std::optional<TavrelCaptureEffectChain::Part> TavrelCaptureEffectChain::part(const Rect& output, Size frameSize) const {
  std::vector<Size> sizes = {frameSize};
  for (const auto& effect : effects()) sizes.push_back(effect->sizeAfter(sizes.back()));
  Rect input = output;
  for (std::size_t i = effects().size(); i-- > 0;) {
    const auto needed = effects()[i]->inputFor(input, sizes[i]);
    if (!needed) return std::nullopt;
    input = *needed;
  }
  Part whole{TavrelCaptureEffectChain({}), input, input};
  for (std::size_t i = 0; i < effects().size(); ++i) {
    TavrelCaptureEffectPart part = effects()[i]->onPart(whole.output, sizes[i]);
    whole.chain.implementation_->effects.push_back(part.effect ? std::move(part.effect) : effects()[i]);
    whole.output = part.output;
  }
  return whole;
}

std::shared_ptr<PixelBuffer> TavrelCaptureEffectChain::prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                                    const SampleTiming& sampleTimingInfo,
                                                                    MediaTime frameTime) const {
  for (const auto& effect : effects()) pixelBuffer = effect->prepareFrame(pixelBuffer, sampleTimingInfo, frameTime);
  return pixelBuffer;
}

}  // namespace tavrel
