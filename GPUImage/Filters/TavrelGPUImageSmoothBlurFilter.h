#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Blurs by a Gaussian of any width at a cost that hardly grows with it: the frame is reduced, blurred and enlarged
/// again, with the variance asked for. Beyond the edges the frame goes on with its outermost pixels. One pair of
/// programs serves every width. In between, components have 16 bits where the driver can.
class TAVREL_API TavrelGPUImageSmoothBlurFilter : public TavrelGPUImageFilter {
 public:
  static constexpr double kLargestSigma = 500;

  TavrelGPUImageSmoothBlurFilter();
  ~TavrelGPUImageSmoothBlurFilter() override;

  /// Standard deviation in pixels of the output, fractions too; 2 by default, 0 does not blur. Clamped to 0 and
  /// `kLargestSigma`.
  double sigma() const;
  void setSigma(double newValue);

  /// Where the kernel is cut off, in pixels of the output; 0, the default, lets it fade out.
  double reach() const;
  void setReach(double newValue);
  /// Blurs linear light instead of sRGB's values, where the driver renders to 16 bits; false by default.
  bool worksInLight() const;
  void setWorksInLight(bool newValue);
  /// By how much the frame is reduced for this sigma, a power of two; frames whose corners lie on multiples of it are
  /// blurred alike.
  static int reductionFor(double sigma);

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
