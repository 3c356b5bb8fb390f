#include "Effects/TavrelImageStickerCaptureEffect.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImagePlacementFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

struct TavrelImageStickerCaptureEffect::Implementation {
  Rect place() const {
    if (destRect != Rect() || !image) return destRect;
    return {{0, 0}, {static_cast<double>(image->width()), static_cast<double>(image->height())}};
  }

  std::shared_ptr<Image> image;
  Rect destRect;
  double rotation = 0;
};

TavrelImageStickerCaptureEffect::TavrelImageStickerCaptureEffect()
    : implementation_(std::make_unique<Implementation>()) {}

TavrelImageStickerCaptureEffect::TavrelImageStickerCaptureEffect(const TavrelImageStickerCaptureEffect& source)
    : TavrelCaptureEffect(source), implementation_(std::make_unique<Implementation>(*source.implementation_)) {}

TavrelImageStickerCaptureEffect::~TavrelImageStickerCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelImageStickerCaptureEffect::copy() const {
  return std::make_shared<TavrelImageStickerCaptureEffect>(*this);
}

const std::shared_ptr<Image>& TavrelImageStickerCaptureEffect::image() const { return implementation_->image; }

void TavrelImageStickerCaptureEffect::setImage(std::shared_ptr<Image> image) {
  changeProperty(implementation_->image, std::move(image), "image");
}

const Rect& TavrelImageStickerCaptureEffect::destRect() const { return implementation_->destRect; }

void TavrelImageStickerCaptureEffect::setDestRect(const Rect& destRect) {
  changeProperty(implementation_->destRect, destRect, "destRect");
}

double TavrelImageStickerCaptureEffect::rotation() const { return implementation_->rotation; }

void TavrelImageStickerCaptureEffect::setRotation(double rotation) {
  changeProperty(implementation_->rotation, rotation, "rotation");
}

TavrelCaptureEffectPart TavrelImageStickerCaptureEffect::onPart(const Rect& input, Size) const {
  const Rect rectangle = implementation_->place();
  const auto moved = std::make_shared<TavrelImageStickerCaptureEffect>(*this);
  moved->setDestRect({{rectangle.origin.x - input.origin.x, rectangle.origin.y - input.origin.y}, rectangle.size});
  return {moved, input};
}

TavrelCaptureEffectNodes TavrelImageStickerCaptureEffect::makeNodes(Size frameSize) {
  const std::shared_ptr<Image>& still = image();
  if (!still) return {};
  const Rect rectangle = implementation_->place();
  const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
  placement->setAffineTransform(TavrelGetTransform(rectangle, frameSize, static_cast<float>(rotation())));
  placement->forceProcessingAtSize(frameSize);
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  blend->setMix(1);

  const auto picture = std::make_shared<TavrelGPUImagePicture>(deepPremultipliedImage(still));
  picture->addTarget(placement);
  placement->addTarget(blend, 1);
  return {.filters = {blend}, .pictures = {picture}};
}

}  // namespace tavrel
