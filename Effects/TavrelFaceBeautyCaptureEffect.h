#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Smooths and brightens skin. Observable: "beautyLevel", "brightLevel" and "toneLevel"; a running camera follows
/// changes. Levels: see `TavrelGPUImageBeautifyFilter`.
class TAVREL_API TavrelFaceBeautyCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelFaceBeautyCaptureEffect();
  /// Copies the attachments, `brightLevel` and `toneLevel`; `beautyLevel` becomes the source's `brightLevel`.
  TavrelFaceBeautyCaptureEffect(const TavrelFaceBeautyCaptureEffect& source);
  ~TavrelFaceBeautyCaptureEffect() override;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// A `TavrelGPUImageBeautifyFilter`.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size frameSize) const override;
  bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) override;

  double beautyLevel() const;
  void setBeautyLevel(double beautyLevel);
  double brightLevel() const;
  void setBrightLevel(double brightLevel);
  double toneLevel() const;
  void setToneLevel(double toneLevel);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
