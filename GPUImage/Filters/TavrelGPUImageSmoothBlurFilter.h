#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Blurs with a Gaussian of any width, at a cost that hardly grows with it: the frame is reduced, blurred and enlarged
/// again, to the requested variance in total. Edge pixels are repeated beyond the edges. One pair of programs serves
/// every width. Intermediate frames have 16 bits a component if the driver supports that.
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
  /// The factor, a power of two, by which the frame is reduced for this sigma. Parts of a frame whose corners lie on
  /// multiples of it are blurred as in the whole frame.
  static int reductionFor(double sigma);

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
