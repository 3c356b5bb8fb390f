#include "Effects/TavrelExternalFilterCaptureEffect.h"

namespace tavrel {

TavrelExternalFilterCaptureEffect::TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source)
    : TavrelCaptureEffect(source), externalFilterClass_(source.externalFilterClass()) {}

std::shared_ptr<PixelBuffer> TavrelExternalFilterCaptureEffect::prepareFrame(
    const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming& sampleTimingInfo, MediaTime) {
  const TavrelExternalFilterClass* const named = externalFilterClass_;
  if (!pixelBuffer || !named || !named->sharedInstance) return pixelBuffer;
  const std::shared_ptr<TavrelExternalFilter> filter = named->sharedInstance();
  if (!filter) return pixelBuffer;
  const std::shared_ptr<PixelBuffer> processed = filter->processPixelBuffer(pixelBuffer, sampleTimingInfo);
  return processed ? processed : pixelBuffer;
}

}  // namespace tavrel
