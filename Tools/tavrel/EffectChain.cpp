#include "EffectChain.h"

namespace tavrel::tool {
namespace {

/// The filter of an effect that may turn or cut the frame; nullptr for the others, which leave its shape alone.
const TavrelGPUImageFilter* shapingFilter(const TavrelCaptureEffect& effect) {
  const auto* const own = dynamic_cast<const TavrelFilterCaptureEffect*>(&effect);
  return own ? own->filter().get() : nullptr;
}

Size sizeAfterEffect(const TavrelCaptureEffect& effect, Size size) {
  const TavrelGPUImageFilter* const filter = shapingFilter(effect);
  if (!filter) return size;
  size = filter->rotatedSize(size, 0);
  if (const auto* const crop = dynamic_cast<const TavrelGPUImageCropFilter*>(filter)) {
    size = {size.width * crop->cropRegion().size.width, size.height * crop->cropRegion().size.height};
  }
  return size;
}

}  // namespace

Size EffectChain::sizeAfter(Size size) const {
  for (const auto& effect : effects_) size = sizeAfterEffect(*effect, size);
  return size;
}

bool EffectChain::turnsSideways() const {
  bool isSideways = false;
  for (const auto& effect : effects_) {
    const TavrelGPUImageFilter* const filter = shapingFilter(*effect);
    if (filter && TavrelGPUImageRotationSwapsWidthAndHeight(filter->inputRotation())) isSideways = !isSideways;
  }
  return isSideways;
}

std::shared_ptr<TavrelGPUImageOutput> EffectChain::connect(const std::shared_ptr<TavrelGPUImageOutput>& source,
                                                           Size size) const {
  std::shared_ptr<TavrelGPUImageOutput> last = source;
  for (const auto& effect : effects_) {
    const TavrelCaptureEffectNodes nodes = TavrelMakeCaptureEffectNodes(*effect, size);
    last->addTarget(nodes.filter, 0);
    if (nodes.picture) nodes.picture->processImage();
    size = sizeAfterEffect(*effect, size);
    last = nodes.filter;
  }
  return last;
}

void EffectChain::advanceTo(double seconds) const {
  for (const auto& effect : effects_) {
    const auto animation = std::dynamic_pointer_cast<TavrelAnimatedStickerCaptureEffect>(effect);
    if (animation && animation->refreshPictureWithTimestamp(seconds)) animation->picture()->processImage();
  }
}

}  // namespace tavrel::tool
