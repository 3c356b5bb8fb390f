#include "Effects/TavrelExternalFilterCaptureEffect.h"

#include <atomic>

namespace tavrel {

struct TavrelExternalFilterCaptureEffect::Implementation {
  std::atomic<const TavrelExternalFilterClass*> externalFilterClass = nullptr;
};

TavrelExternalFilterCaptureEffect::TavrelExternalFilterCaptureEffect()
    : implementation_(std::make_unique<Implementation>()) {}

TavrelExternalFilterCaptureEffect::TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source)
    : TavrelCaptureEffect(source), implementation_(new Implementation{source.externalFilterClass()}) {}

TavrelExternalFilterCaptureEffect::~TavrelExternalFilterCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelExternalFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelExternalFilterCaptureEffect>(*this);
}

const TavrelExternalFilterClass* TavrelExternalFilterCaptureEffect::externalFilterClass() const {
  return implementation_->externalFilterClass;
}

void TavrelExternalFilterCaptureEffect::setExternalFilterClass(const TavrelExternalFilterClass* externalFilterClass) {
  changeValue(implementation_->externalFilterClass, externalFilterClass, "externalFilterClass");
}

std::shared_ptr<PixelBuffer> TavrelExternalFilterCaptureEffect::prepareFrame(
    const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming& sampleTimingInfo, MediaTime) {
  const TavrelExternalFilterClass* const named = externalFilterClass();
  if (!pixelBuffer || !named || !named->sharedInstance) return pixelBuffer;
  const std::shared_ptr<TavrelExternalFilter> filter = named->sharedInstance();
  if (!filter) return pixelBuffer;
  const std::shared_ptr<PixelBuffer> processed = filter->processPixelBuffer(pixelBuffer, sampleTimingInfo);
  return processed ? processed : pixelBuffer;
}

}  // namespace tavrel
