#include "Effects/TavrelImageStickerCaptureEffect.h"

namespace tavrel {

std::shared_ptr<TavrelCaptureEffect> TavrelImageStickerCaptureEffect::copy() const {
  return std::make_shared<TavrelImageStickerCaptureEffect>(*this);
}

}  // namespace tavrel
