#pragma once

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Platform/Imaging/ImagingError.h"

namespace tavrel {

// Each of an upright image. Where the build has them; see TavrelBackends.cmake.
Expected<Data> encodeWebp(const Image& image, const ImageEncoding& encoding);
Expected<Data> encodeAvif(const Image& image, const ImageEncoding& encoding);

}  // namespace tavrel
