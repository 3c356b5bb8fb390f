#include "EffectChain.h"

namespace tavrel::tool {
namespace {

Size sizeAfter(const TavrelGPUImageFilter& filter, Size size) {
  size = filter.rotatedSize(size, 0);
  if (const auto* const crop = dynamic_cast<const TavrelGPUImageCropFilter*>(&filter)) {
    size = {size.width * crop->cropRegion().size.width, size.height * crop->cropRegion().size.height};
  }
  return size;
}

void feedSecondInput(const Effect& effect, Size frameSize) {
  if (!effect.picture) return;
  if (effect.place) {
    effect.place(frameSize);
  } else {
    effect.picture->addTarget(effect.filter, 1);
  }
  effect.picture->processImage();
}

}  // namespace

Size EffectChain::sizeAfter(Size size) const {
  for (const Effect& effect : effects_) size = tool::sizeAfter(*effect.filter, size);
  return size;
}

bool EffectChain::turnsSideways() const {
  bool isSideways = false;
  for (const Effect& effect : effects_) {
    if (TavrelGPUImageRotationSwapsWidthAndHeight(effect.filter->inputRotation())) isSideways = !isSideways;
  }
  return isSideways;
}

std::shared_ptr<TavrelGPUImageOutput> EffectChain::connect(const std::shared_ptr<TavrelGPUImageOutput>& source,
                                                           Size size) const {
  std::shared_ptr<TavrelGPUImageOutput> last = source;
  for (const Effect& effect : effects_) {
    last->addTarget(effect.filter, 0);
    size = tool::sizeAfter(*effect.filter, size);
    feedSecondInput(effect, size);
    last = effect.filter;
  }
  return last;
}

void EffectChain::advanceTo(double seconds) const {
  for (const Effect& effect : effects_) {
    if (effect.animation && effect.animation->refreshPictureWithTimestamp(seconds)) effect.picture->processImage();
  }
}

}  // namespace tavrel::tool
