#include "Effects/Private/StickerReduction.h"

#include <algorithm>
#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/BitmapContext.h"

namespace tavrel {

StickerReduction stickerReduction(Size picture, Size drawn) {
  if (drawn.width < 1 || drawn.height < 1 || TavrelGPUImageContext::scaling().worksInLight) return {};
  const auto times = [](double from, double to) { return static_cast<std::int32_t>(std::max(1.0, from / to)); };
  return {times(picture.width, drawn.width), times(picture.height, drawn.height)};
}

std::shared_ptr<Image> reduced(const std::shared_ptr<Image>& image, StickerReduction reduction) {
  if (!image || reduction == StickerReduction() || image->bitsPerComponent() != 8) return image;
  const auto reduce = [](std::size_t length, std::int32_t times) {
    return (length + static_cast<std::size_t>(times) - 1) / static_cast<std::size_t>(times);
  };
  const std::size_t width = reduce(image->width(), reduction.across), height = reduce(image->height(), reduction.down);
  Data pixels(width * height * 4);
  BitmapContext::create(pixels.data(), width, height, 8, width * 4, kBitmapPremultipliedBGRA)
      ->drawImage(*image, {{0, 0}, {static_cast<double>(width), static_cast<double>(height)}});
  return Image::create(width, height, 8, 32, width * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(std::move(pixels)));
}

}  // namespace tavrel
