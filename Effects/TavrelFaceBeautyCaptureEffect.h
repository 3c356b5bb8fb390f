#pragma once

#include "Effects/TavrelCaptureEffect.h"

namespace tavrel {

/// Smooths and brightens skin. Observable: "beautyLevel", "brightLevel" and "toneLevel"; a running camera follows
/// changes. Levels: see `TavrelGPUImageBeautifyFilter`.
class TAVREL_API TavrelFaceBeautyCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelFaceBeautyCaptureEffect() = default;
  /// Copies the attachments, `brightLevel` and `toneLevel`; `beautyLevel` becomes the source's `brightLevel`.
  TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source);

  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelFaceBeautyCaptureEffect>(*this);
  }
  /// A `TavrelGPUImageBeautifyFilter`.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size frameSize) const override;
  bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) override;

  double beautyLevel() const { return beautyLevel_; }
  void setBeautyLevel(double beautyLevel) { changeProperty(beautyLevel_, beautyLevel, "beautyLevel"); }
  double brightLevel() const { return brightLevel_; }
  void setBrightLevel(double brightLevel) { changeProperty(brightLevel_, brightLevel, "brightLevel"); }
  double toneLevel() const { return toneLevel_; }
  void setToneLevel(double toneLevel) { changeProperty(toneLevel_, toneLevel, "toneLevel"); }

 private:
  double beautyLevel_ = 0.5;
  double brightLevel_ = 0.5;
  double toneLevel_ = 0.5;
};

}  // namespace tavrel
