#pragma once

#include <cstdint>

namespace tavrel {

/// How a frame is fitted into a view of other proportions.
enum TavrelGPUImageFillModeType : std::uint64_t {
  kTavrelGPUImageFillModeStretch = 0,                    ///< fills the view, ignoring the proportions
  kTavrelGPUImageFillModePreserveAspectRatio = 1,        ///< shows the whole frame, with bars in the background colour
  kTavrelGPUImageFillModePreserveAspectRatioAndFill = 2  ///< fills the view and crops the frame
};

}  // namespace tavrel
