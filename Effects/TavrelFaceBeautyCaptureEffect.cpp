#include "Effects/TavrelFaceBeautyCaptureEffect.h"

namespace tavrel {

// The bright level serves twice; that is how a copy has always been.
TavrelFaceBeautyCaptureEffect::TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source)
    : TavrelObject(source),
      TavrelCaptureEffect(source),
      beautyLevel_(source.brightLevel_),
      brightLevel_(source.brightLevel_),
      toneLevel_(source.toneLevel_) {}

std::shared_ptr<TavrelCaptureEffect> TavrelFaceBeautyCaptureEffect::copy() const {
  return std::make_shared<TavrelFaceBeautyCaptureEffect>(*this);
}

}  // namespace tavrel
