#pragma once

#include "Platform/Media/Private/ColorVolume.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// What a file says about a track's coding. Immutable.
struct StoredCoding {
  CodecParameters parameters;
  AVRational frameRate{0, 1};  ///< on average; 0 when it is not known
  ColorVolume colorVolume{};
  bool varies = false;  ///< sound changes its rate or channels, which no header in front can say
};

}  // namespace tavrel
