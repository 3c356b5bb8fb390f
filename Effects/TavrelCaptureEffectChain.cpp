#include "Effects/TavrelCaptureEffectChain.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

TavrelCaptureEffectChain::TavrelCaptureEffectChain(Effects effects) : effects_(std::move(effects)) {}

Size TavrelCaptureEffectChain::sizeAfter(Size frameSize) const {
  for (const auto& effect : effects_) frameSize = effect->sizeAfter(frameSize);
  return frameSize;
}

bool TavrelCaptureEffectChain::turnsSideways() const {
  constexpr double kSide = 1000;
  return sizeAfter({2 * kSide, kSide}).height > sizeAfter({kSide, kSide}).height;
}

std::shared_ptr<TavrelGPUImageOutput> TavrelCaptureEffectChain::connect(
    const std::shared_ptr<TavrelGPUImageOutput>& source, Size frameSize) {
  nodes_.clear();
  std::shared_ptr<TavrelGPUImageOutput> last = source;
  for (const auto& effect : effects_) {
    effect->setWaitsForPictures(true);
    const TavrelCaptureEffectNodes& nodes = nodes_.emplace_back(effect->makeNodes(frameSize));
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
  for (const auto& effect : effects_) sizes.push_back(effect->sizeAfter(sizes.back()));
  Rect input = output;
  for (std::size_t i = effects_.size(); i-- > 0;) {
    const auto needed = effects_[i]->inputFor(input, sizes[i]);
    if (!needed) return std::nullopt;
    input = *needed;
  }
  Part whole{TavrelCaptureEffectChain({}), input, input};
  for (std::size_t i = 0; i < effects_.size(); ++i) {
    TavrelCaptureEffectPart part = effects_[i]->onPart(whole.output, sizes[i]);
    whole.chain.effects_.push_back(part.effect ? std::move(part.effect) : effects_[i]);
    whole.output = part.output;
  }
  return whole;
}

std::shared_ptr<PixelBuffer> TavrelCaptureEffectChain::prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                                    const SampleTiming& sampleTimingInfo,
                                                                    MediaTime frameTime) const {
  for (const auto& effect : effects_) pixelBuffer = effect->prepareFrame(pixelBuffer, sampleTimingInfo, frameTime);
  return pixelBuffer;
}

}  // namespace tavrel
