#pragma once

#include <functional>

#include "Platform/Imaging/Image.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Platform/Imaging/Private/PngRows.h"

namespace tavrel {

/// Writes an upright image as a PNG. `rest` is called each time that some rows have been worked on. The reason when it
/// fails.
std::optional<std::string> writePng(const Image& image, const ImageEncoding& encoding, PngRowWriter::Sink sink,
                                    const std::function<void()>& rest);

/// How the image is stored for this file: its metadata speaks of an upright picture.
ImageMetadata metadataFor(const Image& image, const ImageEncoding& encoding);

}  // namespace tavrel
