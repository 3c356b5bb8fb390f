#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

TAVREL_API extern const char* const kTavrelGPUImageTransformVertexShaderString;

/// Transforms the frame, in coordinates of -1 to 1 across the width that keep the frame's proportions. The rest has the
/// background colour.
class TAVREL_API TavrelGPUImageTransformFilter : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageTransformFilter();
  ~TavrelGPUImageTransformFilter() override;

  /// The part of `transform3D` within the xy plane.
  AffineTransform affineTransform() const;
  void setAffineTransform(const AffineTransform& newValue);
  Transform3D transform3D() const;
  void setTransform3D(const Transform3D& newValue);
  /// If true, coordinates span -1 to 1 in both directions.
  bool ignoreAspectRatio() const;
  void setIgnoreAspectRatio(bool newValue);
  /// If true, the origin is the frame's corner, not its centre.
  bool anchorTopLeft() const;
  void setAnchorTopLeft(bool newValue);
  TavrelGPUMatrix4x4 orthographicMatrix() const;

  void setupFilterForSize(Size filterFrameSize) override;
  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

  /// The transform's elements in the same order, for GL.
  static void convert3DTransform(const Transform3D& transform3D, TavrelGPUMatrix4x4& toMatrix);
  /// The orthographic projection for the vertex shader, which multiplies it from the right; the translation is in
  /// elements 3, 7 and 11.
  void loadOrthoMatrix(TavrelGPUMatrix4x4& matrix, GLfloat left, GLfloat right, GLfloat bottom, GLfloat top,
                       GLfloat near, GLfloat far) const;

 protected:
  Size drawnSize(const GLfloat* vertices) const override;
  Rect drawnArea(const GLfloat* vertices) const;  // around the quad, in pixels
  explicit TavrelGPUImageTransformFilter(std::string_view fragmentShaderString);

 private:
  void applyOrthographicMatrix(GLfloat halfHeight);
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
