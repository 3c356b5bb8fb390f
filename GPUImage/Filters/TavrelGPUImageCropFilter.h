#pragma once

#include <array>

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

  const Rect& cropRegion() const { return cropRegion_; }
  /// In 0…1 of the turned input's width and height; a component outside of that stops the program. Applies to the size
  /// from the next input size on. On the video-processing queue while frames arrive.
  void setCropRegion(const Rect& newValue);
  /// (s, t) of the corners in the order of `textureCoordinatesForRotation`.
  const std::array<GLfloat, 8>& cropTextureCoordinates() const { return cropTextureCoordinates_; }

  Size outputSizeFor(Size inputSize) const override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  void setInputSize(Size newSize, Index atIndex) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 private:
  void calculateCropTextureCoordinates();

  Rect cropRegion_;
  std::array<GLfloat, 8> cropTextureCoordinates_{};
};

}  // namespace tavrel
