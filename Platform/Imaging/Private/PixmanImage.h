#pragma once

#include <pixman.h>

#include <memory>

#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {

struct PixmanImageDeleter {
  void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, PixmanImageDeleter>;

/// 32-bit pixels that somebody else owns; `bytesPerRow` is a multiple of 4.
inline PixmanImage pixmanImage(pixman_format_code_t format, void* pixels, int width, int height, int bytesPerRow) {
  auto* const words = static_cast<std::uint32_t*>(pixels);
  return PixmanImage(pixman_image_create_bits_no_clear(format, width, height, words, bytesPerRow));
}
inline PixmanImage pixmanImage(pixman_format_code_t format, Bitmap& bitmap) {
  return pixmanImage(format, bitmap.pixels.data(), bitmap.width, bitmap.height, bitmap.bytesPerRow());
}

}  // namespace tavrel
