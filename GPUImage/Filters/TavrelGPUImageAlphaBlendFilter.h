#pragma once

#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageAlphaBlendFragmentShaderString;

/// Blends the second input over the first by the second's straight (not premultiplied) alpha. The result has the first
/// input's alpha.
class TAVREL_API TavrelGPUImageAlphaBlendFilter : public TavrelGPUImageTwoInputFilter {
 public:
  TavrelGPUImageAlphaBlendFilter();
  ~TavrelGPUImageAlphaBlendFilter() override;

  /// Factor on the second input's alpha, from 0 to 1; 0.5 by default.
  double mix() const;
  void setMix(double newValue);

 protected:
  bool scalesSecondInput() const override { return true; }

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
