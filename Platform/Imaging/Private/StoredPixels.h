#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

/// Pixels without padding as a file has them, in the colours of its profile.
struct StoredPixels {
  Data bytes = {};  ///< R, G, B, A of 16 bits in the host's order when `isDeep`, else B, G, R, A of 8 bits
  std::size_t width = 0;
  bool isDeep = false;
  bool isOpaque = false;
  bool isPremultiplied = false;
};

/// Makes them as many bits, and of the profile's colours or sRGB, as is asked for.
void convertStoredPixels(StoredPixels& stored, std::span<const std::uint8_t> colorProfile,
                         const ImageDecoding& decoding);

/// The image that is asked for: with as many bits, in the profile's colours or in sRGB, premultiplied or straight.
std::shared_ptr<Image> imageOfStoredPixels(StoredPixels stored, std::span<const std::uint8_t> colorProfile,
                                           const ImageDecoding& decoding);

/// The same for C, M, Y, K of 8 bits, where 255 is no ink. Always in sRGB: what is printed is not shown by its inks'
/// values in any case.
std::shared_ptr<Image> imageOfInks(Data lightOfInks, std::size_t width, std::span<const std::uint8_t> colorProfile);

}  // namespace tavrel
