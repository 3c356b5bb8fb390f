#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// How many pixels of a sticker's frame make one of the picture that goes to the GPU, which draws it smaller still.
struct StickerReduction {
  std::int32_t across = 1;
  std::int32_t down = 1;
  bool operator==(const StickerReduction&) const = default;
};

/// As large as leaves a pixel of the picture for each that is drawn, at least. None where scaling is to be exact.
StickerReduction stickerReduction(Size picture, Size drawn);

/// The mean of that many pixels each; the same image where there is nothing to do.
std::shared_ptr<Image> reduced(const std::shared_ptr<Image>& image, StickerReduction reduction);

}  // namespace tavrel
