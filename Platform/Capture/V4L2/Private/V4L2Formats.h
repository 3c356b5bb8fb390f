#pragma once

#include <cstdint>
#include <string>

#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel {

/// A pixel format of the kernel's that we can read.
struct V4L2KnownFormat {
  std::uint32_t pixelFormat = 0;
  FrameLayout layout = FrameLayout::bgra;
  PackedPixel packed = {};
};

/// nullptr for all others.
const V4L2KnownFormat* knownV4L2Format(std::uint32_t pixelFormat);
/// Formats with greater numbers take more time, or lose colours.
std::size_t costOfV4L2Format(std::uint32_t pixelFormat);
/// The four characters, as "YUYV"; such as only begin like that of two, with "-BE" behind.
std::string nameOfV4L2Format(std::uint32_t pixelFormat);

}  // namespace tavrel
