#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

#include <algorithm>
#include <array>

namespace tavrel {

const char* const kTavrelGPUImageTransformVertexShaderString =
    "attribute vec4 position; attribute vec4 inputTextureCoordinate; uniform mat4 transformMatrix; uniform mat4 "
    "orthographicMatrix; varying vec2 textureCoordinate; void main() { gl_Position = transformMatrix * "
    "vec4(position.xyz, 1.0) * orthographicMatrix; textureCoordinate = inputTextureCoordinate.xy; }";

TavrelGPUImageTransformFilter::TavrelGPUImageTransformFilter()
    : TavrelGPUImageFilter(kTavrelGPUImageTransformVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString) {
  transformMatrixUniform = uniformIndex("transformMatrix");
  orthographicMatrixUniform = uniformIndex("orthographicMatrix");
  setTransform3D({});
}

void TavrelGPUImageTransformFilter::setAffineTransform(const AffineTransform& newValue) {
  setTransform3D(Transform3D::makeAffine(newValue));
}

void TavrelGPUImageTransformFilter::setTransform3D(const Transform3D& newValue) {
  transform3D_ = newValue;
  TavrelGPUMatrix4x4 matrix{};
  std::transform(newValue.m.begin(), newValue.m.end(), matrix.begin(),
                 [](double element) { return static_cast<GLfloat>(element); });
  setMatrix4f(matrix, transformMatrixUniform, filterProgram);
}

void TavrelGPUImageTransformFilter::setIgnoreAspectRatio(bool newValue) {
  ignoreAspectRatio_ = newValue;
  if (ignoreAspectRatio_) {
    applyOrthographicMatrix(1);
  } else {
    setupFilterForSize(sizeOfFBO());
  }
}

void TavrelGPUImageTransformFilter::setAnchorTopLeft(bool newValue) {
  anchorTopLeft_ = newValue;
  setIgnoreAspectRatio(ignoreAspectRatio_);
}

void TavrelGPUImageTransformFilter::setupFilterForSize(Size filterFrameSize) {
  if (ignoreAspectRatio_) return;
  applyOrthographicMatrix(static_cast<GLfloat>(filterFrameSize.height / filterFrameSize.width));
}

void TavrelGPUImageTransformFilter::applyOrthographicMatrix(GLfloat halfHeight) {
  loadOrthoMatrix(orthographicMatrix_, -1, 1, -halfHeight, halfHeight, -1, 1);
  setMatrix4f(orthographicMatrix_, orthographicMatrixUniform, filterProgram);
}

void TavrelGPUImageTransformFilter::loadOrthoMatrix(TavrelGPUMatrix4x4& matrix, GLfloat left, GLfloat right,
                                                    GLfloat bottom, GLfloat top, GLfloat near, GLfloat far) const {
  const GLfloat width = right - left;
  const GLfloat height = top - bottom;
  const GLfloat depth = far - near;
  const GLfloat scale = anchorTopLeft_ ? 4 : 2;
  matrix.fill(0);
  matrix[0] = scale / width;
  matrix[3] = anchorTopLeft_ ? -1 : -(right + left) / width;
  matrix[5] = scale / height;
  matrix[7] = anchorTopLeft_ ? -1 : -(top + bottom) / height;
  matrix[10] = scale / depth;
  matrix[11] = -(far + near) / depth;
  matrix[15] = 1;
}

void TavrelGPUImageTransformFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  const Size size = sizeOfFBO();
  const GLfloat top = ignoreAspectRatio_ ? 1 : static_cast<GLfloat>(size.height / size.width);
  const GLfloat left = anchorTopLeft_ ? 0 : -1;
  const GLfloat bottom = anchorTopLeft_ ? 0 : -top;
  const std::array<GLfloat, 8> vertices = {left, bottom, 1, bottom, left, top, 1, top};
  renderToTexture(vertices.data(), textureCoordinatesForRotation(inputRotation_));
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
