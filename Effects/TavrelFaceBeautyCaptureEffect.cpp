#include "Effects/TavrelFaceBeautyCaptureEffect.h"

#include "GPUImage/Filters/TavrelGPUImageBeautifyFilter.h"

namespace tavrel {

struct TavrelFaceBeautyCaptureEffect::Implementation {
  double beautyLevel = 0.5;
  double brightLevel = 0.5;
  double toneLevel = 0.5;
};

TavrelFaceBeautyCaptureEffect::TavrelFaceBeautyCaptureEffect() : implementation_(std::make_unique<Implementation>()) {}

// The bright level serves twice; that is how a copy has always been.
TavrelFaceBeautyCaptureEffect::TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source)
    : TavrelCaptureEffect(source),
      implementation_(new Implementation{
          .beautyLevel = source.brightLevel(), .brightLevel = source.brightLevel(), .toneLevel = source.toneLevel()}) {}

TavrelFaceBeautyCaptureEffect::~TavrelFaceBeautyCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelFaceBeautyCaptureEffect::copy() const {
  return std::make_shared<TavrelFaceBeautyCaptureEffect>(*this);
}

double TavrelFaceBeautyCaptureEffect::beautyLevel() const { return implementation_->beautyLevel; }

void TavrelFaceBeautyCaptureEffect::setBeautyLevel(double beautyLevel) {
  changeProperty(implementation_->beautyLevel, beautyLevel, "beautyLevel");
}

double TavrelFaceBeautyCaptureEffect::brightLevel() const { return implementation_->brightLevel; }

void TavrelFaceBeautyCaptureEffect::setBrightLevel(double brightLevel) {
  changeProperty(implementation_->brightLevel, brightLevel, "brightLevel");
}

double TavrelFaceBeautyCaptureEffect::toneLevel() const { return implementation_->toneLevel; }

void TavrelFaceBeautyCaptureEffect::setToneLevel(double toneLevel) {
  changeProperty(implementation_->toneLevel, toneLevel, "toneLevel");
}

TavrelCaptureEffectNodes TavrelFaceBeautyCaptureEffect::makeNodes(Size) {
  const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
  filter->setBeautyLevel(beautyLevel());
  filter->setBrightLevel(brightLevel());
  filter->setToneLevel(toneLevel());
  return {.filters = {filter}, .pictures = {}};
}

std::optional<Rect> TavrelFaceBeautyCaptureEffect::inputFor(const Rect& output, Size frameSize) const {
  constexpr double kFarthestSample = 20;  // ten steps of two pixels
  return grown(output, kFarthestSample + 1, frameSize);
}

bool TavrelFaceBeautyCaptureEffect::applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) {
  auto& filter = static_cast<TavrelGPUImageBeautifyFilter&>(*nodes.filters.front());
  if (property == "beautyLevel") filter.setBeautyLevel(beautyLevel());
  if (property == "brightLevel") filter.setBrightLevel(brightLevel());
  if (property == "toneLevel") filter.setToneLevel(toneLevel());
  return true;
}

}  // namespace tavrel
