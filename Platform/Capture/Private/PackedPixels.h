#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tavrel {

/// How a pixel lies in a word of its own, all of its components together.
struct PackedPixel {
  struct Channel {
    std::uint8_t shift = 0;  ///< from the word's lowest bit
    std::uint8_t bits = 0;   ///< 1 to 16
  };
  std::uint8_t byteCount = 0;  ///< of the word: 1 to 8
  bool isBigEndian = false;
  bool isYCbCr = false;
  std::array<Channel, 3> channels = {};  ///< red, green, blue, or Y, Cb, Cr; gray is thrice the same

  /// Components of a byte each, by the place of theirs in memory.
  static constexpr PackedPixel ofBytes(std::uint8_t byteCount, std::array<std::uint8_t, 3> places, bool isYCbCr) {
    PackedPixel pixel = {.byteCount = byteCount, .isYCbCr = isYCbCr};
    for (std::size_t i = 0; i < 3; ++i) pixel.channels[i] = {static_cast<std::uint8_t>(places[i] * 8), 8};
    return pixel;
  }
  static constexpr PackedPixel ofGray(std::uint8_t bits, bool isBigEndian = false) {
    return {.byteCount = 2, .isBigEndian = isBigEndian, .channels = {{{0, bits}, {0, bits}, {0, bits}}}};
  }

  bool isGray() const { return channels[0].shift == channels[1].shift && !isYCbCr; }
};

/// Writes the components of a row as bytes, `step` bytes apart, each to a place of its own.
void unpackPixels(const PackedPixel& pixel, const std::uint8_t* row, int width,
                  const std::array<std::uint8_t*, 3>& targets, int step);

}  // namespace tavrel
