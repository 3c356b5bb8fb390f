#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

TAVREL_API extern const char* const kDOTGPUImageBeautyFragmentShaderString;

/// Smooths, brightens and tones skin. Compares each pixel's green with a weighted mean of 24 pixels up to 20 pixels
/// away; the more alike they are and the brighter the pixel, the more it is smoothed and lightened. The result is
/// opaque. Levels range from 0 to 1 and are not clamped.
class TAVREL_API TavrelGPUImageBeautifyFilter : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageBeautifyFilter();
  ~TavrelGPUImageBeautifyFilter() override;

  /// Strength of smoothing; 0.5 by default.
  double beautyLevel() const;
  void setBeautyLevel(double newValue);
  /// 0.5, the default, keeps the brightness; 0 subtracts 0.3, 1 adds 0.3.
  double brightLevel() const;
  void setBrightLevel(double newValue);
  /// Soft light and saturation; 0.5 by default. Takes effect at the next `setBeautyLevel`.
  double toneLevel() const;
  void setToneLevel(double newValue);
  void setParams(double beauty, double tone);

  /// The output has the input's size, even if the input is rotated.
  void setInputSize(Size newSize, Index atIndex) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
