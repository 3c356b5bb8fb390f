#pragma once

#include <cstdint>

namespace tavrel {

/// How a picture is fitted into a view of other proportions.
enum TavrelGPUImageFillModeType : std::uint64_t {
  kTavrelGPUImageFillModeStretch = 0,                    ///< both sides fill the view
  kTavrelGPUImageFillModePreserveAspectRatio = 1,        ///< all of the picture, bars of the background colour
  kTavrelGPUImageFillModePreserveAspectRatioAndFill = 2  ///< all of the view, what does not fit is cut off
};

}  // namespace tavrel
