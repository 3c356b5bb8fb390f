#include "Effects/TavrelLUTFilterCaptureEffect.h"

namespace tavrel {

std::shared_ptr<TavrelCaptureEffect> TavrelLUTFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelLUTFilterCaptureEffect>(*this);
}

}  // namespace tavrel
