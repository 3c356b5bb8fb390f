#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

#include <algorithm>
#include <cmath>

#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

const char* const kTavrelGPUImageTransformVertexShaderString =
    "attribute vec4 position; attribute vec4 inputTextureCoordinate; uniform mat4 transformMatrix; uniform mat4 "
    "orthographicMatrix; varying vec2 textureCoordinate; void main() { gl_Position = transformMatrix * "
    "vec4(position.xyz, 1.0) * orthographicMatrix; textureCoordinate = inputTextureCoordinate.xy; }";

struct TavrelGPUImageTransformFilter::Implementation {
  Transform3D transform3D;
  bool ignoreAspectRatio = false;
  bool anchorTopLeft = false;
  TavrelGPUMatrix4x4 orthographicMatrix{};
  GLint transformMatrixUniform = -1;
  GLint orthographicMatrixUniform = -1;
};

TavrelGPUImageTransformFilter::TavrelGPUImageTransformFilter()
    : TavrelGPUImageTransformFilter(kTavrelGPUImagePassthroughFragmentShaderString) {}

TavrelGPUImageTransformFilter::TavrelGPUImageTransformFilter(std::string_view fragmentShaderString)
    : TavrelGPUImageFilter(kTavrelGPUImageTransformVertexShaderString, fragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {
  implementation_->transformMatrixUniform = uniformIndex("transformMatrix");
  implementation_->orthographicMatrixUniform = uniformIndex("orthographicMatrix");
  setTransform3D({});
}

TavrelGPUImageTransformFilter::~TavrelGPUImageTransformFilter() = default;

AffineTransform TavrelGPUImageTransformFilter::affineTransform() const { return transform3D().affine(); }

void TavrelGPUImageTransformFilter::setAffineTransform(const AffineTransform& newValue) {
  setTransform3D(Transform3D::makeAffine(newValue));
}

TAVREL_NODE_VALUE(TavrelGPUImageTransformFilter, Transform3D, transform3D)

void TavrelGPUImageTransformFilter::setTransform3D(const Transform3D& newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->transform3D = newValue;
    TavrelGPUMatrix4x4 matrix{};
    convert3DTransform(newValue, matrix);
    setMatrix4f(matrix, implementation_->transformMatrixUniform, program());
  });
}

void TavrelGPUImageTransformFilter::convert3DTransform(const Transform3D& transform3D, TavrelGPUMatrix4x4& toMatrix) {
  std::transform(transform3D.m.begin(), transform3D.m.end(), toMatrix.begin(),
                 [](double element) { return static_cast<GLfloat>(element); });
}

TAVREL_NODE_VALUE(TavrelGPUImageTransformFilter, bool, ignoreAspectRatio)

void TavrelGPUImageTransformFilter::setIgnoreAspectRatio(bool newValue) {
  onVideoProcessingQueue([&] {
    implementation_->ignoreAspectRatio = newValue;
    if (newValue) {
      applyOrthographicMatrix(1);
    } else {
      setupFilterForSize(sizeOfFBO());
    }
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageTransformFilter, bool, anchorTopLeft)

void TavrelGPUImageTransformFilter::setAnchorTopLeft(bool newValue) {
  onVideoProcessingQueue([&] {
    implementation_->anchorTopLeft = newValue;
    setIgnoreAspectRatio(implementation_->ignoreAspectRatio);
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageTransformFilter, TavrelGPUMatrix4x4, orthographicMatrix)

void TavrelGPUImageTransformFilter::setupFilterForSize(Size filterFrameSize) {
  onVideoProcessingQueue([&] {
    if (implementation_->ignoreAspectRatio) return;
    applyOrthographicMatrix(static_cast<GLfloat>(filterFrameSize.height / filterFrameSize.width));
  });
}

void TavrelGPUImageTransformFilter::applyOrthographicMatrix(GLfloat halfHeight) {
  loadOrthoMatrix(implementation_->orthographicMatrix, -1, 1, -halfHeight, halfHeight, -1, 1);
  setMatrix4f(implementation_->orthographicMatrix, implementation_->orthographicMatrixUniform, program());
}

void TavrelGPUImageTransformFilter::loadOrthoMatrix(TavrelGPUMatrix4x4& matrix, GLfloat left, GLfloat right,
                                                    GLfloat bottom, GLfloat top, GLfloat near, GLfloat far) const {
  const bool isAnchoredTopLeft = anchorTopLeft();
  const GLfloat width = right - left;
  const GLfloat height = top - bottom;
  const GLfloat depth = far - near;
  const GLfloat scale = isAnchoredTopLeft ? 4 : 2;
  matrix.fill(0);
  matrix[0] = scale / width;
  matrix[3] = isAnchoredTopLeft ? -1 : -(right + left) / width;
  matrix[5] = scale / height;
  matrix[7] = isAnchoredTopLeft ? -1 : -(top + bottom) / height;
  matrix[10] = scale / depth;
  matrix[11] = -(far + near) / depth;
  matrix[15] = 1;
}

Size TavrelGPUImageTransformFilter::drawnSize(const GLfloat* vertices) const {
  const auto& matrix = implementation_->transform3D.m;
  const auto& projection = implementation_->orthographicMatrix;
  const Size size = sizeOfFBO();
  const auto pixel = [&](std::size_t corner) {
    const double x = vertices[corner * 2], y = vertices[corner * 2 + 1];
    std::array<double, 4> moved{}, seen{};
    for (std::size_t i = 0; i < 4; ++i) moved[i] = matrix[i] * x + matrix[4 + i] * y + matrix[12 + i];
    for (std::size_t i = 0; i < 4; ++i) {
      for (std::size_t j = 0; j < 4; ++j) seen[i] += moved[j] * projection[i * 4 + j];
    }
    return Point{seen[0] / seen[3] * size.width / 2, seen[1] / seen[3] * size.height / 2};
  };
  const auto distance = [&](std::size_t corner) {
    const Point first = pixel(0), other = pixel(corner);
    return std::hypot(other.x - first.x, other.y - first.y);
  };
  return {distance(1), distance(2)};
}

void TavrelGPUImageTransformFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  const Implementation& state = *implementation_;
  const Size size = sizeOfFBO();
  const GLfloat top = state.ignoreAspectRatio ? 1 : static_cast<GLfloat>(size.height / size.width);
  const GLfloat left = state.anchorTopLeft ? 0 : -1;
  const GLfloat bottom = state.anchorTopLeft ? 0 : -top;
  const std::array<GLfloat, 8> vertices = {left, bottom, 1, bottom, left, top, 1, top};
  renderToTextureWithVertices(vertices.data(), textureCoordinatesForRotation(inputRotation()));
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
