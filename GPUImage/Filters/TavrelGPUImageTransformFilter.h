#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageTransformVertexShaderString;

/// Draws the frame through a transform, in coordinates that run from -1 to 1 across the width and keep the frame's
/// proportions. What the frame leaves free has the background colour.
class TAVREL_API TavrelGPUImageTransformFilter : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageTransformFilter();
  ~TavrelGPUImageTransformFilter() override;

  /// The plane's part of `transform3D`.
  AffineTransform affineTransform() const;
  void setAffineTransform(const AffineTransform& newValue);
  Transform3D transform3D() const;
  void setTransform3D(const Transform3D& newValue);
  /// With true the coordinates run from -1 to 1 in both directions.
  bool ignoreAspectRatio() const;
  void setIgnoreAspectRatio(bool newValue);
  /// With true the frame's corner, not its centre, is the origin.
  bool anchorTopLeft() const;
  void setAnchorTopLeft(bool newValue);
  TavrelGPUMatrix4x4 orthographicMatrix() const;

  void setupFilterForSize(Size filterFrameSize) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

  /// The transform's elements in their order, as GL takes them.
  static void convert3DTransform(const Transform3D& transform3D, TavrelGPUMatrix4x4& toMatrix);
  /// The orthographic projection as the vertex shader takes it: multiplied from the right, its translation in elements
  /// 3, 7 and 11.
  void loadOrthoMatrix(TavrelGPUMatrix4x4& matrix, GLfloat left, GLfloat right, GLfloat bottom, GLfloat top,
                       GLfloat near, GLfloat far) const;

 protected:
  explicit TavrelGPUImageTransformFilter(std::string_view fragmentShaderString);

 private:
  void applyOrthographicMatrix(GLfloat halfHeight);

  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
