#include "GPUImage/Destinations/TavrelGPUImageView.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/LinkedProgram.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/UI/Screen.h"

namespace tavrel {
namespace {

// (s, t) at bottom-left, bottom-right, top-left, top-right; one row for each rotation mode.
constexpr GLfloat kTextureCoordinates[8][8] = {
    {0, 1, 1, 1, 0, 0, 1, 0},  // no rotation
    {0, 0, 0, 1, 1, 0, 1, 1},  // rotate left
    {1, 1, 1, 0, 0, 1, 0, 0},  // rotate right
    {0, 0, 1, 0, 0, 1, 1, 1},  // flip vertical
    {1, 1, 0, 1, 1, 0, 0, 0},  // flip horizontal
    {1, 0, 1, 1, 0, 0, 0, 1},  // rotate right, flip vertical
    {0, 1, 0, 0, 1, 1, 1, 0},  // rotate right, flip horizontal
    {1, 0, 0, 0, 1, 1, 0, 1},  // rotate 180
};

}  // namespace

TavrelGPUImageView::TavrelGPUImageView(const Rect& frame) : TavrelGPUImageView(frame, layerClass()()) {}

TavrelGPUImageView::TavrelGPUImageView(const Rect& frame, const std::shared_ptr<DrawableLayer>& layer)
    : View(frame, layer), drawable_(layer->drawable()) {
  commonInit();
}

TavrelGPUImageView::~TavrelGPUImageView() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    destroyDisplayFramebuffer();
    inputFramebufferForDisplay = {};
  });
}

TavrelGPUImageView::LayerClass TavrelGPUImageView::layerClass() {
  return [] { return std::make_shared<DrawableLayer>(); };
}

const GLfloat* TavrelGPUImageView::textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode) {
  return rotationMode <= kTavrelGPUImageRotate180 ? kTextureCoordinates[rotationMode] : nullptr;
}

void TavrelGPUImageView::commonInit() {
  layer()->setContentsScale(Screen::main().scale());
  layer()->setOpaque(true);
  layer()->setHidden(false);
  refreshBoundsForBackgroundThread();
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    initializeDisplayProgram();
    createDisplayFramebuffer();
  });
}

void TavrelGPUImageView::initializeDisplayProgram() {
  displayProgram =
      linkedProgram(*TavrelGPUImageContext::sharedImageProcessingContext(), kTavrelGPUImageVertexShaderString,
                    kTavrelGPUImagePassthroughFragmentShaderString, {"position", "inputTextureCoordinate"});
  displayPositionAttribute = displayProgram->attributeIndex("position");
  displayTextureCoordinateAttribute = displayProgram->attributeIndex("inputTextureCoordinate");
  displayInputTextureUniform = displayProgram->uniformIndex("inputImageTexture");
  TavrelGPUImageContext::setActiveShaderProgram(displayProgram);
  glEnableVertexAttribArray(displayPositionAttribute);
  glEnableVertexAttribArray(displayTextureCoordinateAttribute);
}

void TavrelGPUImageView::setFillMode(TavrelGPUImageFillModeType newValue) {
  fillMode_ = newValue;
  recalculateViewGeometry();
}

void TavrelGPUImageView::setBackgroundColorRed(GLfloat redComponent, GLfloat green, GLfloat blue, GLfloat alpha) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    backgroundColorRed = redComponent;
    backgroundColorGreen = green;
    backgroundColorBlue = blue;
    backgroundColorAlpha = alpha;
  });
}

Size TavrelGPUImageView::sizeInPixels() const {
  {
    const std::lock_guard lock(geometryMutex_);
    if (!isZero(sizeInPixels_)) return sizeInPixels_;
  }
  return maximumOutputSize();
}

Size TavrelGPUImageView::maximumOutputSize() const {
  const std::lock_guard lock(geometryMutex_);
  const Size size = boundsForBackgroundThread_.size;
  if (scaleForBackgroundThread_ <= 0) return size;
  return {size.width * scaleForBackgroundThread_, size.height * scaleForBackgroundThread_};
}

void TavrelGPUImageView::refreshBoundsForBackgroundThread() {
  const std::lock_guard lock(geometryMutex_);
  boundsForBackgroundThread_ = bounds();
  scaleForBackgroundThread_ = contentScaleFactor();
}

Rect TavrelGPUImageView::boundsForBackgroundThread() const {
  const std::lock_guard lock(geometryMutex_);
  return boundsForBackgroundThread_;
}

void TavrelGPUImageView::layoutSubviews() {
  refreshBoundsForBackgroundThread();
  const Size size = bounds().size;
  if (isZero(size)) return;
  const bool isOtherSize = [&] {
    const std::lock_guard lock(geometryMutex_);
    return size != boundsSizeAtFrameBufferEpoch;
  }();
  if (isOtherSize) {
    recreateDisplayFramebuffer();
  } else {
    recalculateViewGeometry();
  }
}

void TavrelGPUImageView::contentScaleFactorDidChange() {
  refreshBoundsForBackgroundThread();
  if (!isZero(bounds().size)) recreateDisplayFramebuffer();
}

void TavrelGPUImageView::recreateDisplayFramebuffer() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    destroyDisplayFramebuffer();
    createDisplayFramebuffer();
  });
}

void TavrelGPUImageView::createDisplayFramebuffer() {
  TavrelGPUImageContext::useImageProcessingContext();
  glGenFramebuffers(1, &displayFramebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, displayFramebuffer);
  glGenRenderbuffers(1, &displayRenderbuffer);
  glBindRenderbuffer(GL_RENDERBUFFER, displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->context()->renderbufferStorage(drawable_);

  GLint width = 0;
  GLint height = 0;
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_WIDTH, &width);
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_HEIGHT, &height);
  if (width == 0 || height == 0) {
    destroyDisplayFramebuffer();
    return;
  }
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, displayRenderbuffer);
  const Size viewSize = boundsForBackgroundThread().size;
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
    fatalAssertion("Failure with display framebuffer generation for display of size: {:f}, {:f}", viewSize.width,
                   viewSize.height);
  }
  {
    const std::lock_guard lock(geometryMutex_);
    sizeInPixels_ = {static_cast<double>(width), static_cast<double>(height)};
    boundsSizeAtFrameBufferEpoch = viewSize;
  }
  recalculateViewGeometry();
}

void TavrelGPUImageView::destroyDisplayFramebuffer() {
  TavrelGPUImageContext::useImageProcessingContext();
  if (displayFramebuffer) glDeleteFramebuffers(1, &displayFramebuffer);
  displayFramebuffer = 0;
  if (!displayRenderbuffer) return;
  glBindRenderbuffer(GL_RENDERBUFFER, displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->context()->renderbufferStorage(nullptr);
  glDeleteRenderbuffers(1, &displayRenderbuffer);
  displayRenderbuffer = 0;
}

void TavrelGPUImageView::setDisplayFramebuffer() {
  if (!displayFramebuffer) createDisplayFramebuffer();
  glBindFramebuffer(GL_FRAMEBUFFER, displayFramebuffer);
  const Size size = sizeInPixels();
  glViewport(0, 0, static_cast<GLsizei>(size.width), static_cast<GLsizei>(size.height));
}

void TavrelGPUImageView::presentFramebuffer() {
  glBindRenderbuffer(GL_RENDERBUFFER, displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->presentBufferForDisplay();
}

void TavrelGPUImageView::recalculateViewGeometry() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    const Rect bounds = boundsForBackgroundThread();
    const Size view = bounds.size;
    const Size inset = rectWithAspectRatioInsideRect(inputImageSize, bounds).size;
    double width = 1;
    double height = 1;
    switch (fillMode_) {
      case kTavrelGPUImageFillModeStretch:
        break;
      case kTavrelGPUImageFillModePreserveAspectRatio:
        width = inset.width / view.width;
        height = inset.height / view.height;
        break;
      case kTavrelGPUImageFillModePreserveAspectRatioAndFill:
        // Crosswise: the side that fits already keeps its factor 1, the other one grows by what the first had to
        // shrink.
        width = view.height / inset.height;
        height = view.width / inset.width;
        break;
    }
    const auto w = static_cast<GLfloat>(width);
    const auto h = static_cast<GLfloat>(height);
    imageVertices_ = {-w, -h, w, -h, -w, h, w, h};
  });
}

void TavrelGPUImageView::newFrameReadyAtTime(MediaTime, Index) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::setActiveShaderProgram(displayProgram);
    setDisplayFramebuffer();
    // Without a display framebuffer there is nothing to draw into until the next layout.
    if (displayFramebuffer) {
      NodeSpan::noteDrawing();
      drawInput();
      presentFramebuffer();
      if (Tracer::isOn()) Tracer::count(TraceNames::shared().framesShown);
    }
    inputFramebufferForDisplay = {};
  });
}

void TavrelGPUImageView::drawInput() {
  glClearColor(backgroundColorRed, backgroundColorGreen, backgroundColorBlue, backgroundColorAlpha);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, inputFramebufferForDisplay.texture());
  glUniform1i(displayInputTextureUniform, 4);
  glVertexAttribPointer(displayPositionAttribute, 2, GL_FLOAT, GL_FALSE, 0, imageVertices_.data());
  glVertexAttribPointer(displayTextureCoordinateAttribute, 2, GL_FLOAT, GL_FALSE, 0,
                        textureCoordinatesForRotation(inputRotation));
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void TavrelGPUImageView::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) {
  inputFramebufferForDisplay = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
}

void TavrelGPUImageView::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) {
  inputRotation = newInputRotation;
}

void TavrelGPUImageView::setInputSize(Size newSize, Index) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const Size rotated =
        TavrelGPUImageRotationSwapsWidthAndHeight(inputRotation) ? Size{newSize.height, newSize.width} : newSize;
    if (rotated == inputImageSize) return;
    inputImageSize = rotated;
    recalculateViewGeometry();
  });
}

}  // namespace tavrel
