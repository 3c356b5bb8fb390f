#include "GPUImage/Filters/TavrelGPUImageRotationFilter.h"

#include <array>
#include <atomic>

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

struct TavrelGPUImageRotationFilter::Implementation {
  std::atomic<TavrelGPUImageRotationMode> rotation = kTavrelGPUImageNoRotation;
};

TavrelGPUImageRotationFilter::TavrelGPUImageRotationFilter(TavrelGPUImageRotationMode rotation)
    : implementation_(std::make_unique<Implementation>()) {
  allowFusion();
  setRotation(rotation);
}

TavrelGPUImageRotationFilter::~TavrelGPUImageRotationFilter() = default;

TavrelGPUImageRotationMode TavrelGPUImageRotationFilter::rotation() const { return implementation_->rotation; }

void TavrelGPUImageRotationFilter::setRotation(TavrelGPUImageRotationMode rotation) {
  if (rotation > kTavrelGPUImageRotate180) fatalAssertion("rotation <= kTavrelGPUImageRotate180");
  // Between two frames: a frame's size and its corners go by the same mode.
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { implementation_->rotation = rotation; });
}

Size TavrelGPUImageRotationFilter::rotatedSize(Size size, Index forIndex) const {
  return TavrelGPUImageRotatedSize(TavrelGPUImageFilter::rotatedSize(size, forIndex), rotation());
}

void TavrelGPUImageRotationFilter::setInputSize(Size newSize, Index atIndex) {
  TavrelGPUImageFilter::setInputSize(overrideInputSize() ? rotatedSize(newSize, atIndex) : newSize, atIndex);
}

void TavrelGPUImageRotationFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  // The corners of the turned frame are corners of the frame as it comes.
  const GLfloat* const turned = textureCoordinatesForRotation(rotation());
  const GLfloat* const incoming = textureCoordinatesForRotation(inputRotation());
  std::array<GLfloat, 8> corners{};
  for (std::size_t i = 0; i < corners.size(); i += 2) {
    const std::size_t corner = static_cast<std::size_t>(turned[i]) + 2 * static_cast<std::size_t>(turned[i + 1]);
    corners[i] = incoming[2 * corner];
    corners[i + 1] = incoming[2 * corner + 1];
  }
  renderToTextureWithVertices(fullFrameVertices(), corners.data());
  informTargetsAboutNewFrameAtTime(frameTime);
}

}  // namespace tavrel
