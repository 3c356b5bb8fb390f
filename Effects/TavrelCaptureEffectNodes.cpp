#include "Effects/TavrelCaptureEffectNodes.h"

#include "Effects/TavrelAnimatedStickerCaptureEffect.h"
#include "Effects/TavrelFaceBeautyCaptureEffect.h"
#include "Effects/TavrelFilterCaptureEffect.h"
#include "Effects/TavrelImageStickerCaptureEffect.h"
#include "Effects/TavrelLUTFilterCaptureEffect.h"
#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImageBeautifyFilter.h"
#include "GPUImage/Filters/TavrelGPUImageLookupFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {
namespace {

Size sizeOf(const Image& image) {
  return {static_cast<double>(image.width()), static_cast<double>(image.height())};
}

TavrelCaptureEffectNodes nodesOf(const TavrelImageStickerCaptureEffect& sticker, Size frameSize) {
  if (!sticker.image()) return {};
  const Size imageSize = sizeOf(*sticker.image());
  const Rect rectangle = sticker.destRect() == Rect() ? Rect{{0, 0}, imageSize} : sticker.destRect();
  const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
  placement->setAffineTransform(TavrelGetTransform(rectangle, frameSize, static_cast<float>(sticker.rotation())));
  placement->forceProcessingAtSize(frameSize);
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  blend->setMix(1);

  // Blending multiplies by alpha, so the colours must not be multiplied already. A picture that is much reduced takes
  // mipmaps, else pixels would be left out.
  const bool isMuchReduced =
      imageSize.width > 1.5 * rectangle.size.width || imageSize.height > 1.5 * rectangle.size.height;
  const auto picture = std::make_shared<TavrelGPUImagePicture>(straightImage(sticker.image()), isMuchReduced, true);
  picture->addTarget(placement);
  placement->addTarget(blend, 1);
  return {blend, picture};
}

TavrelCaptureEffectNodes nodesOf(const TavrelLUTFilterCaptureEffect& table) {
  if (!table.image()) return {};
  const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto picture = std::make_shared<TavrelGPUImagePicture>(table.image(), false, true);
  picture->addTarget(lookup, 1);
  return {lookup, picture};
}

TavrelCaptureEffectNodes nodesOf(const TavrelFaceBeautyCaptureEffect& beauty) {
  const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
  filter->setToneLevel(beauty.toneLevel());
  filter->setBrightLevel(beauty.brightLevel());
  filter->setBeautyLevel(beauty.beautyLevel());
  return {filter, nullptr};
}

}  // namespace

TavrelCaptureEffectNodes TavrelMakeCaptureEffectNodes(TavrelCaptureEffect& effect, Size frameSize) {
  if (const auto* const sticker = dynamic_cast<TavrelImageStickerCaptureEffect*>(&effect)) {
    return nodesOf(*sticker, frameSize);
  }
  if (const auto* const table = dynamic_cast<TavrelLUTFilterCaptureEffect*>(&effect)) return nodesOf(*table);
  if (const auto* const beauty = dynamic_cast<TavrelFaceBeautyCaptureEffect*>(&effect)) return nodesOf(*beauty);
  if (auto* const animation = dynamic_cast<TavrelAnimatedStickerCaptureEffect*>(&effect)) {
    animation->setVideoSize(frameSize);
    return {animation->filter(), animation->picture()};
  }
  if (const auto* const own = dynamic_cast<TavrelFilterCaptureEffect*>(&effect)) return {own->filter(), nullptr};
  return {};
}

}  // namespace tavrel
