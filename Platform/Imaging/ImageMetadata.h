#pragma once

#include "Platform/Foundation/Data.h"

namespace tavrel {

/// What a picture file says besides its pixels. Empty where it says nothing.
struct ImageMetadata {
  Data exif = {};  ///< date, place, camera: the TIFF block, which begins with "II" or "MM"
  Data xmp = {};   ///< the packet, UTF-8 text
  /// The ICC profile of the stored colours; empty for sRGB. Made from the file's gAMA, cHRM or cICP chunk where it has
  /// no profile.
  Data colorProfile = {};
};

}  // namespace tavrel
