#pragma once

#include <array>
#include <memory>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageCropFragmentShaderString;

/// Cuts a rectangle out of the frame; the output has the rectangle's size.
class TAVREL_API TavrelGPUImageCropFilter : public TavrelGPUImageFilter {
 public:
  /// The whole frame.
  TavrelGPUImageCropFilter();
  /// See `setCropRegion`.
  explicit TavrelGPUImageCropFilter(const Rect& cropRegion);
  ~TavrelGPUImageCropFilter() override;

  /// The largest region of frames of `size`, in their middle, that has the proportions of `wanted`.
  static Rect centredRegion(Size size, Size wanted);

  Rect cropRegion() const;
  /// In 0…1 of the input's width and height: of the input as it comes where the rotation keeps them, and of the input
  /// after `kTavrelGPUImageRotateRight` where it exchanges them. A component outside of 0…1 stops the program. Applies
  /// to the size from the next input size on.
  void setCropRegion(const Rect& newValue);
  /// (s, t) of the corners in the order of `textureCoordinatesForRotation`.
  std::array<GLfloat, 8> cropTextureCoordinates() const;

  Size outputSizeFor(Size inputSize) const override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 private:
  void calculateCropTextureCoordinates();

  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
