#pragma once

#include "Platform/Capture/CaptureDeviceFormat.h"

namespace tavrel {

/// Sizes that a camera with any size is asked for.
inline constexpr CaptureVideoDimensions kUsualSizes[] = {{320, 240},  {640, 360},   {640, 480},   {800, 600},
                                                         {1280, 720}, {1920, 1080}, {2560, 1440}, {3840, 2160}};

}  // namespace tavrel
