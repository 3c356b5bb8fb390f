#pragma once

#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel {

inline constexpr const char* kCameraLogTag = "TavrelCamera";

}  // namespace tavrel
