#pragma once

#include <span>

#include "Platform/Imaging/ImageMetadata.h"

namespace tavrel {

/// What the application segments before a JPEG's pixels say.
ImageMetadata metadataOfJpeg(std::span<const std::uint8_t> jpeg);

/// Puts it into a JPEG, behind its first segment. What is too long for a segment (EXIF, XMP: 64 KiB) is left out.
void addMetadataToJpeg(Data& jpeg, const ImageMetadata& metadata);

}  // namespace tavrel
