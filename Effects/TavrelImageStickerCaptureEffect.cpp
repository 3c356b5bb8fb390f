#include "Effects/TavrelImageStickerCaptureEffect.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

Rect TavrelImageStickerCaptureEffect::place() const {
  if (destRect_ != Rect() || !image_) return destRect_;
  return {{0, 0}, {static_cast<double>(image_->width()), static_cast<double>(image_->height())}};
}

TavrelCaptureEffectPart TavrelImageStickerCaptureEffect::onPart(const Rect& input, Size) const {
  const Rect rectangle = place();
  const auto moved = std::make_shared<TavrelImageStickerCaptureEffect>(*this);
  moved->setDestRect({{rectangle.origin.x - input.origin.x, rectangle.origin.y - input.origin.y}, rectangle.size});
  return {moved, input};
}

TavrelCaptureEffectNodes TavrelImageStickerCaptureEffect::makeNodes(Size frameSize) {
  if (!image_) return {};
  const Size imageSize = {static_cast<double>(image_->width()), static_cast<double>(image_->height())};
  const Rect rectangle = place();
  const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
  placement->setAffineTransform(TavrelGetTransform(rectangle, frameSize, static_cast<float>(rotation_)));
  placement->forceProcessingAtSize(frameSize);
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  blend->setMix(1);

  // A picture that is much reduced takes mipmaps, else pixels would be left out.
  const bool isMuchReduced =
      imageSize.width > 1.5 * rectangle.size.width || imageSize.height > 1.5 * rectangle.size.height;
  const auto picture = std::make_shared<TavrelGPUImagePicture>(premultipliedImage(image_), isMuchReduced);
  picture->addTarget(placement);
  placement->addTarget(blend, 1);
  return {.filters = {blend}, .pictures = {picture}};
}

}  // namespace tavrel
