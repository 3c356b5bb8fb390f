#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

TAVREL_API extern const char* const kDOTGPUImageBeautyFragmentShaderString;

/// Smooths, brightens and tones skin. Each pixel's green is compared with a weighted mean of 24 pixels around it, up to
/// 20 pixels away; where they are alike, and the more the brighter the pixel is, the picture is smoothed and lightened.
/// The result is opaque. Levels run from 0 to 1 and are not clamped.
class TAVREL_API TavrelGPUImageBeautifyFilter : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageBeautifyFilter();
  ~TavrelGPUImageBeautifyFilter() override;

  /// How much is smoothed; 0.5 by default.
  double beautyLevel() const;
  void setBeautyLevel(double newValue);
  /// 0.5, the default, leaves the brightness alone; 0 takes 0.3 away, 1 adds 0.3.
  double brightLevel() const;
  void setBrightLevel(double newValue);
  /// Soft light and saturation; 0.5 by default. Seen from the next `setBeautyLevel` on: set the tone first.
  double toneLevel() const;
  void setToneLevel(double newValue);
  void setParams(double beauty, double tone);

  /// The output has the size of the input as it comes, also when that is turned.
  void setInputSize(Size newSize, Index atIndex) override;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
