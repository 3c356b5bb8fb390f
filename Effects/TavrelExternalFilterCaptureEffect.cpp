#include "Effects/TavrelExternalFilterCaptureEffect.h"

namespace tavrel {

std::shared_ptr<TavrelCaptureEffect> TavrelExternalFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelExternalFilterCaptureEffect>(*this);
}

std::shared_ptr<PixelBuffer> TavrelExternalFilterCaptureEffect::processedPixelBuffer(
    const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming& sampleTimingInfo) const {
  if (!externalFilterClass_ || !externalFilterClass_->sharedInstance) return pixelBuffer;
  const std::shared_ptr<TavrelExternalFilter> filter = externalFilterClass_->sharedInstance();
  if (!filter) return pixelBuffer;
  const std::shared_ptr<PixelBuffer> processed = filter->processPixelBuffer(pixelBuffer, sampleTimingInfo);
  return processed ? processed : pixelBuffer;
}

}  // namespace tavrel
