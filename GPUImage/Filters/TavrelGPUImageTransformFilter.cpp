#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"

#include <algorithm>
#include <cmath>

#include "GPUImage/Filters/Private/FilterImplementation.h"
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

  /// Where a vertex is drawn, in -1…1 of the frame.
  Point placeOf(const GLfloat* vertex) const;
  /// What a quad shows at the corners of the frame, if those are its own.
  std::optional<std::array<GLfloat, 8>> cornersOfWholeFrame(const GLfloat* vertices,
                                                            const GLfloat* textureCoordinates) const;
};

TavrelGPUImageTransformFilter::TavrelGPUImageTransformFilter()
    : TavrelGPUImageTransformFilter(kTavrelGPUImagePassthroughFragmentShaderString) {}

TavrelGPUImageTransformFilter::TavrelGPUImageTransformFilter(std::string_view fragmentShaderString)
    : TavrelGPUImageFilter(kTavrelGPUImageTransformVertexShaderString, fragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {
  allowFusion();
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
  TavrelGPUMatrix4x4 matrix{};
  loadOrthoMatrix(matrix, -1, 1, -halfHeight, halfHeight, -1, 1);
  if (matrix == implementation_->orthographicMatrix) return;
  implementation_->orthographicMatrix = matrix;
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

Point TavrelGPUImageTransformFilter::Implementation::placeOf(const GLfloat* vertex) const {
  const auto& matrix = transform3D.m;
  std::array<double, 4> moved{}, seen{};
  for (std::size_t i = 0; i < 4; ++i) moved[i] = matrix[i] * vertex[0] + matrix[4 + i] * vertex[1] + matrix[12 + i];
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t j = 0; j < 4; ++j) seen[i] += moved[j] * orthographicMatrix[i * 4 + j];
  }
  return {seen[0] / seen[3], seen[1] / seen[3]};
}

Rect TavrelGPUImageTransformFilter::drawnArea(const GLfloat* vertices) const {
  const Size size = sizeOfFBO();
  Point least = {size.width, size.height}, most;
  for (std::size_t corner = 0; corner < 4; ++corner) {
    const Point place = implementation_->placeOf(vertices + corner * 2);
    const Point pixel = {(place.x + 1) / 2 * size.width, (place.y + 1) / 2 * size.height};
    least = {std::min(least.x, pixel.x), std::min(least.y, pixel.y)};
    most = {std::max(most.x, pixel.x), std::max(most.y, pixel.y)};
  }
  return {least, {most.x - least.x, most.y - least.y}};
}

Size TavrelGPUImageTransformFilter::drawnSize(const GLfloat* vertices) const {
  const Size size = sizeOfFBO();
  const auto distance = [&](std::size_t corner) {
    const Point first = implementation_->placeOf(vertices), other = implementation_->placeOf(vertices + corner * 2);
    return std::hypot((other.x - first.x) * size.width / 2, (other.y - first.y) * size.height / 2);
  };
  return {distance(1), distance(2)};
}

std::optional<std::array<GLfloat, 8>> TavrelGPUImageTransformFilter::Implementation::cornersOfWholeFrame(
    const GLfloat* vertices, const GLfloat* textureCoordinates) const {
  // Without depth, which could be cut off.
  const auto& m = transform3D.m;
  if (m[2] != 0 || m[6] != 0 || m[14] != 0 || m[3] != 0 || m[7] != 0 || m[15] != 1) return std::nullopt;
  constexpr double kTolerance = 1e-6;
  std::array<GLfloat, 8> corners{};
  for (std::size_t frame = 0; frame < 4; ++frame) {
    const GLfloat* const wanted = fullFrameVertices() + frame * 2;
    std::size_t vertex = 0;
    for (; vertex < 4; ++vertex) {
      const Point place = placeOf(vertices + vertex * 2);
      if (std::abs(place.x - wanted[0]) < kTolerance && std::abs(place.y - wanted[1]) < kTolerance) break;
    }
    if (vertex == 4) return std::nullopt;
    for (std::size_t i = 0; i < 2; ++i) corners[frame * 2 + i] = textureCoordinates[vertex * 2 + i];
  }
  return corners;
}

void TavrelGPUImageTransformFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  const Implementation& state = *implementation_;
  const Size size = sizeOfFBO();
  const GLfloat top = state.ignoreAspectRatio ? 1 : static_cast<GLfloat>(size.height / size.width);
  const GLfloat left = state.anchorTopLeft ? 0 : -1;
  const GLfloat bottom = state.anchorTopLeft ? 0 : -top;
  const std::array<GLfloat, 8> vertices = {left, bottom, 1, bottom, left, top, 1, top};
  const GLfloat* const coordinates = textureCoordinatesForRotation(inputRotation());
  const auto corners = state.cornersOfWholeFrame(vertices.data(), coordinates);
  if (corners && !preventRendering() && filter().defer(*this, corners->data())) {
    unlockInputs();
  } else {
    renderToTextureWithVertices(vertices.data(), coordinates);
  }
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
