#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// The TIFF block of EXIF as files have it: without the header of JPEG's segments, which some write elsewhere, too.
Data exifBlockOf(std::span<const std::uint8_t> stored);

/// The orientation in a TIFF block of EXIF; `up` where it says none.
ImageOrientation orientationOfExif(std::span<const std::uint8_t> exif);

/// The orientation that EXIF and TIFF call by a number; `up` for others than 1 to 8.
ImageOrientation orientationOfNumber(std::uint32_t number);

/// What a TIFF file says besides its pixels (date, place, camera, author), as a block of EXIF; empty for none, and for
/// a BigTIFF.
Data exifBlockOfTiff(std::span<const std::uint8_t> file);

/// Makes the block speak of a picture that is stored upright, of this size: orientation 1, no thumbnail. Changed in
/// place, so that the camera's own notes, which point into it, stay right.
void makeExifUpright(Data& exif, std::size_t width, std::size_t height, bool isSRGB);

/// The same for the orientation in an XMP packet.
void makeXmpUpright(Data& xmp);

}  // namespace tavrel
