#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"

#include <algorithm>

#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

bool isInUnitRange(double value) { return value >= 0 && value <= 1; }

// Where each texture coordinate of a corner comes from: an edge of the region, mirrored (1 - edge) or not.
enum Edge { x0, x1, y0, y1, mirroredX0, mirroredX1 };

// (s, t) of the four corners for each rotation mode.
constexpr Edge kCorners[8][8] = {
    {x0, y0, x1, y0, x0, y1, x1, y1},                                  // no rotation
    {y1, mirroredX1, y1, mirroredX0, y0, mirroredX1, y0, mirroredX0},  // rotate left
    {y0, mirroredX0, y0, mirroredX1, y1, mirroredX0, y1, mirroredX1},  // rotate right
    {x0, y1, x1, y1, x0, y0, x1, y0},                                  // flip vertical
    {x1, y0, x0, y0, x1, y1, x0, y1},                                  // flip horizontal
    {y0, mirroredX1, y0, mirroredX0, y1, mirroredX1, y1, mirroredX0},  // rotate right, flip vertical
    {y1, mirroredX0, y1, mirroredX1, y0, mirroredX0, y0, mirroredX1},  // rotate right, flip horizontal
    {x1, y1, x0, y1, x1, y0, x0, y0},                                  // rotate 180
};

}  // namespace

const char* const kTavrelGPUImageCropFragmentShaderString =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
    "texture2D(inputImageTexture, textureCoordinate); }";

struct TavrelGPUImageCropFilter::Implementation {
  Rect cropRegion;
  std::array<GLfloat, 8> cropTextureCoordinates{};
};

TavrelGPUImageCropFilter::TavrelGPUImageCropFilter() : TavrelGPUImageCropFilter(Rect{{0, 0}, {1, 1}}) {}

TavrelGPUImageCropFilter::TavrelGPUImageCropFilter(const Rect& cropRegion)
    : TavrelGPUImageFilter(kTavrelGPUImageCropFragmentShaderString),
      implementation_(std::make_unique<Implementation>()) {
  allowFusion();
  setCropRegion(cropRegion);
}

Rect TavrelGPUImageCropFilter::centredRegion(Size size, Size wanted) {
  const Rect part = rectWithAspectRatioInsideRect(wanted, {{0, 0}, size});
  return {{part.origin.x / size.width, part.origin.y / size.height},
          {part.size.width / size.width, part.size.height / size.height}};
}

TavrelGPUImageCropFilter::~TavrelGPUImageCropFilter() = default;

TAVREL_NODE_VALUE(TavrelGPUImageCropFilter, Rect, cropRegion)

void TavrelGPUImageCropFilter::setCropRegion(const Rect& newValue) {
  if (!isInUnitRange(newValue.origin.x) || !isInUnitRange(newValue.origin.y) || !isInUnitRange(newValue.size.width) ||
      !isInUnitRange(newValue.size.height)) {
    fatalAssertion(
        "newValue.origin.x >= 0 && newValue.origin.x <= 1 && newValue.origin.y >= 0 && newValue.origin.y <= 1 && "
        "newValue.size.width >= 0 && newValue.size.width <= 1 && newValue.size.height >= 0 && newValue.size.height <= "
        "1");
  }
  onVideoProcessingQueue([&] {
    implementation_->cropRegion = newValue;
    calculateCropTextureCoordinates();
  });
}

std::array<GLfloat, 8> TavrelGPUImageCropFilter::cropTextureCoordinates() const {
  return onVideoProcessingQueue([this] { return implementation_->cropTextureCoordinates; });
}

void TavrelGPUImageCropFilter::calculateCropTextureCoordinates() {
  const TavrelGPUImageRotationMode rotation = inputRotation();
  if (rotation > kTavrelGPUImageRotate180) return;
  const Rect& region = implementation_->cropRegion;
  const GLfloat edges[] = {
      static_cast<GLfloat>(region.minX()),     static_cast<GLfloat>(region.maxX()),
      static_cast<GLfloat>(region.minY()),     static_cast<GLfloat>(region.maxY()),
      static_cast<GLfloat>(1 - region.minX()), static_cast<GLfloat>(1 - region.maxX()),
  };
  auto& coordinates = implementation_->cropTextureCoordinates;
  for (std::size_t i = 0; i < coordinates.size(); ++i) coordinates[i] = edges[kCorners[rotation][i]];
}

void TavrelGPUImageCropFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) {
  onVideoProcessingQueue([&] {
    TavrelGPUImageFilter::setInputRotation(newInputRotation, atIndex);
    calculateCropTextureCoordinates();
  });
}

Size TavrelGPUImageCropFilter::outputSizeFor(Size inputSize) const {
  return onVideoProcessingQueue([&] {
    const Size turned = rotatedSize(inputSize, 0);
    const Size region = implementation_->cropRegion.size;
    if (turned.width == 0 || turned.height == 0) return Size{};
    return Size{std::max(1.0, turned.width * region.width), std::max(1.0, turned.height * region.height)};
  });
}

void TavrelGPUImageCropFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  renderToTextureWithVertices(fullFrameVertices(), implementation_->cropTextureCoordinates.data());
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
