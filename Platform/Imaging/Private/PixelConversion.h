#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Platform/Foundation/Data.h"

namespace tavrel {

class Image;

/// B, G, R, A pixels without padding; the form in which pictures are worked on here.
struct Bitmap {
  Bitmap(int bitmapWidth, int bitmapHeight)
      : width(bitmapWidth),
        height(bitmapHeight),
        pixels(static_cast<std::size_t>(bitmapWidth) * static_cast<std::size_t>(bitmapHeight) * 4) {}

  int bytesPerRow() const { return width * 4; }
  std::uint8_t* row(int y) { return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width) * 4; }

  int width;
  int height;
  Data pixels;
};

/// True for R, G, B, A of 16 bits each.
bool isDeep(const Image& image);

/// True for 32-bit pixels with straight colours.
bool isStraight(const Image& image);

/// True when no pixel of such an image can be transparent.
bool isOpaque(const Image& image);
/// True when no pixel of this image is.
bool isOpaqueThroughout(const Image& image);

/// The picture as premultiplied B, G, R, A, from any layout an image can have. Not turned.
Bitmap premultipliedBGRA(const Image& image);

/// The picture as straight R, G, B, A: colours divided by alpha, rounded. Not turned.
Bitmap straightRGBA(const Image& image);

/// Straight B, G, R, A becomes premultiplied.
void multiplyByAlpha(std::span<std::uint8_t> straight);

/// The same for R, G, B, A of 16 bits in the host's order.
void multiplyByAlphaDeep(std::span<std::uint8_t> straight);

/// A straight picture of 32-bit pixels as premultiplied R, G, B, A of 16 bits. Not turned.
Data premultipliedRGBA16(const Image& image);

/// The same pixels as `straightRGBA` gives, with 16 bits for each component.
Data straightRGBA16(const Image& image);

/// Lays a premultiplied picture at a place of another: over what is there by its alpha, or instead.
void layOnto(Bitmap& target, Bitmap& source, int left, int top, bool over);

/// An image that takes over the premultiplied B, G, R, A pixels; `opaque` says that alpha is to be skipped.
std::shared_ptr<Image> imageOf(Bitmap bitmap, bool opaque);
/// The same for rows without padding, of R, G, B, A of 16 bits each when `deep`.
std::shared_ptr<Image> imageOfPixels(Data pixels, std::size_t width, bool deep, bool opaque);

/// An image of the same layout with some of the rows, whose bytes somebody else keeps.
std::shared_ptr<Image> rowsOf(const Image& image, std::size_t first, std::size_t count);

}  // namespace tavrel
