#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavrel {

/// A BGRA picture in memory that belongs to someone else.
struct BgraCanvas {
  std::uint8_t* bytes = nullptr;
  std::size_t bytesPerRow = 0;
  int width = 0;
  int height = 0;

  std::uint8_t* pixel(int x, int y) const {
    return bytes + static_cast<std::size_t>(y) * bytesPerRow + static_cast<std::size_t>(x) * 4;
  }
};

/// A rectangle of whole pixels.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// A BGRA picture that owns its memory.
class BgraPicture {
 public:
  /// Keeps the memory where it suffices; the pixels are then undefined.
  void resize(int width, int height) {
    width_ = width;
    height_ = height;
    bytes_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  }
  bool isEmpty() const { return bytes_.empty(); }
  BgraCanvas canvas() { return {bytes_.data(), static_cast<std::size_t>(width_) * 4, width_, height_}; }

 private:
  int width_ = 0;
  int height_ = 0;
  std::vector<std::uint8_t> bytes_;
};

/// Blue, green, red, alpha.
using BgraColor = std::array<std::uint8_t, 4>;

inline constexpr BgraColor kBlack = {0, 0, 0, 255};
inline constexpr BgraColor kWhite = {255, 255, 255, 255};

/// Fills the part of `rect` that lies inside the canvas.
void fillRect(const BgraCanvas& canvas, PixelRect rect, BgraColor color);
/// Copies a picture of the same size.
void copyPicture(const BgraCanvas& source, const BgraCanvas& destination);
/// The mean brightness, 0 … 255, of the middle of `rect`, which lies inside the canvas: half its width and height.
double meanBrightnessOfMiddle(const BgraCanvas& canvas, PixelRect rect);

}  // namespace tavrel
