#pragma once

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

using EffectChain = TavrelCaptureEffectChain;

}  // namespace tavrel::tool
