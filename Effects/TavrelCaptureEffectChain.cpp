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

std::shared_ptr<PixelBuffer> TavrelCaptureEffectChain::prepareFrame(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                                    const SampleTiming& sampleTimingInfo,
                                                                    MediaTime frameTime) const {
  for (const auto& effect : effects_) pixelBuffer = effect->prepareFrame(pixelBuffer, sampleTimingInfo, frameTime);
  return pixelBuffer;
}

}  // namespace tavrel
