#include "Effects/TavrelFaceBeautyCaptureEffect.h"

#include "GPUImage/Filters/TavrelGPUImageBeautifyFilter.h"

namespace tavrel {

// The bright level serves twice; that is how a copy has always been.
TavrelFaceBeautyCaptureEffect::TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source)
    : TavrelCaptureEffect(source),
      beautyLevel_(source.brightLevel_),
      brightLevel_(source.brightLevel_),
      toneLevel_(source.toneLevel_) {}

TavrelCaptureEffectNodes TavrelFaceBeautyCaptureEffect::makeNodes(Size) {
  const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
  filter->setBeautyLevel(beautyLevel_);
  filter->setBrightLevel(brightLevel_);
  filter->setToneLevel(toneLevel_);
  return {.filters = {filter}, .pictures = {}};
}

std::optional<Rect> TavrelFaceBeautyCaptureEffect::inputFor(const Rect& output, Size frameSize) const {
  constexpr double kFarthestSample = 20;  // ten steps of two pixels
  return grown(output, kFarthestSample + 1, frameSize);
}

bool TavrelFaceBeautyCaptureEffect::applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) {
  auto& filter = static_cast<TavrelGPUImageBeautifyFilter&>(*nodes.filters.front());
  if (property == "beautyLevel") filter.setBeautyLevel(beautyLevel_);
  if (property == "brightLevel") filter.setBrightLevel(brightLevel_);
  if (property == "toneLevel") filter.setToneLevel(toneLevel_);
  return true;
}

}  // namespace tavrel
