#pragma once

#include <array>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageCropFragmentShaderString;

/// Crops the frame to a rectangle, which determines the output size: at least one pixel.
class TAVREL_API TavrelGPUImageCropFilter : public TavrelGPUImageFilter {
 public:
  /// Keeps the whole frame.
  TavrelGPUImageCropFilter();
  /// See `setCropRegion`.
  explicit TavrelGPUImageCropFilter(const Rect& cropRegion);
  ~TavrelGPUImageCropFilter() override;

  /// The largest centred region of frames of `size` with the proportions of `wanted`.
  static Rect centredRegion(Size size, Size wanted);

  Rect cropRegion() const;
  /// In 0…1 of the input's width and height: before rotation if that keeps them, or after `kTavrelGPUImageRotateRight`
  /// if it exchanges them. A component outside 0…1 stops the program. The output size follows at the next input size.
  void setCropRegion(const Rect& newValue);
  /// (s, t) of the corners, in the order of `textureCoordinatesForRotation`.
  std::array<GLfloat, 8> cropTextureCoordinates() const;

  Size outputSizeFor(Size inputSize) const override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 private:
  void calculateCropTextureCoordinates();
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
