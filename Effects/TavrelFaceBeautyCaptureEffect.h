#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelObject.h"

namespace tavrel {

/// Smooths and brightens skin. Observable: "beautyLevel", "brightLevel" and "toneLevel"; the camera passes a change of
/// one on to its filter.
class TAVREL_API TavrelFaceBeautyCaptureEffect : public TavrelObject, public TavrelCaptureEffect {
 public:
  TavrelFaceBeautyCaptureEffect() = default;
  /// A copy takes over attachments, `brightLevel` and `toneLevel`; its `beautyLevel` is the source's `brightLevel`.
  TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source);

  std::shared_ptr<TavrelCaptureEffect> copy() const override;

  double beautyLevel() const { return beautyLevel_; }
  void setBeautyLevel(double beautyLevel) { changeValue(beautyLevel_, beautyLevel, "beautyLevel"); }
  double brightLevel() const { return brightLevel_; }
  void setBrightLevel(double brightLevel) { changeValue(brightLevel_, brightLevel, "brightLevel"); }
  double toneLevel() const { return toneLevel_; }
  void setToneLevel(double toneLevel) { changeValue(toneLevel_, toneLevel, "toneLevel"); }

 private:
  double beautyLevel_ = 0.5;
  double brightLevel_ = 0.5;
  double toneLevel_ = 0.5;
};

}  // namespace tavrel
