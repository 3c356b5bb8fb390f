#pragma once

#include <GLES2/gl2.h>

#include <cstdint>
#include <optional>
#include <span>

namespace tavrel {

class Image;

/// How the 32-bit pixels of a picture lie in memory, as far as its upload must know.
struct PictureLayout {
  GLenum format;
  bool isLittleEndian;
  bool isAlphaFirst;
  bool isPremultiplied;
};

/// The layout with which the image's own bytes can be uploaded; nothing when it has to be redrawn first.
std::optional<PictureLayout> directLayoutOf(const Image& image);

/// The layout of a redrawn picture: B, G, R, A in memory, premultiplied.
PictureLayout redrawnLayout();

/// Divides the colours of `pixels` (32-bit words in `layout`) by their alpha, in place.
void removePremultiplication(std::span<std::uint8_t> pixels, const PictureLayout& layout);

}  // namespace tavrel
