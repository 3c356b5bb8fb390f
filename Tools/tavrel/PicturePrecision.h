#pragma once

#include <memory>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The image with 16 bits for each component. One that has them, or is not laid out as `ImageSource` does, is returned
/// unchanged.
std::shared_ptr<Image> deepened(const std::shared_ptr<Image>& image);

/// An image of 16 bits with 8, dithered by a pattern of 8×8 pixels: areas keep their mean, and levels of 8 bits stay.
/// Any other is returned unchanged.
std::shared_ptr<Image> dithered(const std::shared_ptr<Image>& image);

}  // namespace tavrel::tool
