#pragma once

#include <array>
#include <cstdint>

namespace tavrel::tool {

/// Capitals, digits, ':' and '.', of 5×7 pixels: a row a byte, the leftmost pixel in bit 4. Everything else is blank.
inline constexpr int kGlyphWidth = 5;
inline constexpr int kGlyphHeight = 7;
using Glyph = std::array<std::uint8_t, kGlyphHeight>;
const Glyph& glyphOf(char character);

}  // namespace tavrel::tool
