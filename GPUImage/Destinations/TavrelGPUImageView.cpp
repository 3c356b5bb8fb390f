#include "GPUImage/Destinations/TavrelGPUImageView.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "GPUImage/Filters/Private/InputScaling.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/UI/Screen.h"

namespace tavrel {
namespace {

/// For each rotation mode, the one that flips the picture vertically besides.
constexpr TavrelGPUImageRotationMode kUpsideDown[8] = {
    kTavrelGPUImageFlipVertical,
    kTavrelGPUImageRotateRightFlipVertical,
    kTavrelGPUImageRotateRightFlipHorizontal,
    kTavrelGPUImageNoRotation,
    kTavrelGPUImageRotate180,
    kTavrelGPUImageRotateLeft,
    kTavrelGPUImageRotateRight,
    kTavrelGPUImageFlipHorizontal,
};

}  // namespace

struct TavrelGPUImageView::Implementation {
  explicit Implementation(std::shared_ptr<GLDrawable> target) : drawable(std::move(target)) {}

  Rect bounds() const {
    const std::lock_guard lock(geometryMutex);
    return boundsForBackgroundThread;
  }
  /// The input at the size at which it is shown, where that is another one.
  const InputScaling::Scaled* scaledInput(Size size);
  void drawInput(Size size, const InputScaling::Scaled* scaled) const;
  /// Draws the input by what it means, where no other draw has made it a picture and each pixel shows one of its own.
  bool drawPendingInput(Size size) const;

  const std::shared_ptr<GLDrawable> drawable;
  QuadProgram displayProgram;
  GLuint displayFramebuffer = 0;
  GLuint displayRenderbuffer = 0;
  TavrelGPUImageFramebufferLease inputFramebufferForDisplay;
  InputScaling scaling;
  Size inputImageSize;
  std::array<GLfloat, 8> imageVertices{};
  GLfloat backgroundColorRed = 0;
  GLfloat backgroundColorGreen = 0;
  GLfloat backgroundColorBlue = 0;
  GLfloat backgroundColorAlpha = 1;
  TavrelGPUImageRotationMode inputRotation = kTavrelGPUImageNoRotation;
  std::atomic<TavrelGPUImageFillModeType> fillMode = kTavrelGPUImageFillModePreserveAspectRatio;
  std::atomic<double> aspectRatio = 0;
  std::atomic<bool> enabled = true;

  // Between the main thread and the video-processing queue.
  mutable std::mutex geometryMutex;
  Rect boundsForBackgroundThread;
  double scaleForBackgroundThread = 1;
  Size boundsSizeAtFrameBufferEpoch;
  Size sizeInPixels;
};

TavrelGPUImageView::TavrelGPUImageView(const Rect& frame) : TavrelGPUImageView(frame, layerClass()()) {}

TavrelGPUImageView::TavrelGPUImageView(const Rect& frame, const std::shared_ptr<DrawableLayer>& layer)
    : View(frame, layer), implementation_(std::make_unique<Implementation>(layer->drawable())) {
  commonInit();
}

TavrelGPUImageView::~TavrelGPUImageView() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    destroyDisplayFramebuffer();
    implementation_->inputFramebufferForDisplay = {};
  });
}

TavrelGPUImageView::LayerClass TavrelGPUImageView::layerClass() {
  return [] { return std::make_shared<DrawableLayer>(); };
}

const GLfloat* TavrelGPUImageView::textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode) {
  if (rotationMode > kTavrelGPUImageRotate180) return nullptr;
  return TavrelGPUImageFilter::textureCoordinatesForRotation(kUpsideDown[rotationMode]);
}

void TavrelGPUImageView::commonInit() {
  layer()->setContentsScale(Screen::main().scale());
  layer()->setOpaque(true);
  layer()->setHidden(false);
  refreshBoundsForBackgroundThread();
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    implementation_->displayProgram =
        QuadProgram(*TavrelGPUImageContext::sharedImageProcessingContext(), kTavrelGPUImageVertexShaderString,
                    kTavrelGPUImagePassthroughFragmentShaderString);
    createDisplayFramebuffer();
  });
}

TavrelGPUImageFillModeType TavrelGPUImageView::fillMode() const { return implementation_->fillMode; }

void TavrelGPUImageView::setFillMode(TavrelGPUImageFillModeType newValue) {
  implementation_->fillMode = newValue;
  recalculateViewGeometry();
}

TAVREL_ATOMIC_PROPERTY(TavrelGPUImageView, double, aspectRatio, setAspectRatio)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageView, bool, enabled, setEnabled)

const std::array<GLfloat, 8>& TavrelGPUImageView::imageVertices() const { return implementation_->imageVertices; }

void TavrelGPUImageView::setBackgroundColorRed(GLfloat redComponent, GLfloat green, GLfloat blue, GLfloat alpha) {
  if (!isFinite(redComponent + green + blue + alpha)) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    implementation_->backgroundColorRed = redComponent;
    implementation_->backgroundColorGreen = green;
    implementation_->backgroundColorBlue = blue;
    implementation_->backgroundColorAlpha = alpha;
  });
}

Size TavrelGPUImageView::sizeInPixels() const {
  {
    const std::lock_guard lock(implementation_->geometryMutex);
    if (!isZero(implementation_->sizeInPixels)) return implementation_->sizeInPixels;
  }
  return maximumOutputSize();
}

Size TavrelGPUImageView::maximumOutputSize() const {
  const std::lock_guard lock(implementation_->geometryMutex);
  const Size size = implementation_->boundsForBackgroundThread.size;
  if (implementation_->scaleForBackgroundThread <= 0) return size;
  return {size.width * implementation_->scaleForBackgroundThread,
          size.height * implementation_->scaleForBackgroundThread};
}

void TavrelGPUImageView::refreshBoundsForBackgroundThread() {
  const std::lock_guard lock(implementation_->geometryMutex);
  implementation_->boundsForBackgroundThread = bounds();
  implementation_->scaleForBackgroundThread = contentScaleFactor();
}

void TavrelGPUImageView::layoutSubviews() {
  refreshBoundsForBackgroundThread();
  const Size size = bounds().size;
  if (isZero(size)) return;
  const bool isOtherSize = [&] {
    const std::lock_guard lock(implementation_->geometryMutex);
    return size != implementation_->boundsSizeAtFrameBufferEpoch;
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
  glGenFramebuffers(1, &implementation_->displayFramebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, implementation_->displayFramebuffer);
  glGenRenderbuffers(1, &implementation_->displayRenderbuffer);
  glBindRenderbuffer(GL_RENDERBUFFER, implementation_->displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->context()->renderbufferStorage(implementation_->drawable);

  GLint width = 0;
  GLint height = 0;
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_WIDTH, &width);
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_HEIGHT, &height);
  if (width == 0 || height == 0) {
    destroyDisplayFramebuffer();
    return;
  }
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                            implementation_->displayRenderbuffer);
  const Size viewSize = implementation_->bounds().size;
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
    fatalAssertion("Failure with display framebuffer generation for display of size: {:f}, {:f}", viewSize.width,
                   viewSize.height);
  }
  {
    const std::lock_guard lock(implementation_->geometryMutex);
    implementation_->sizeInPixels = {static_cast<double>(width), static_cast<double>(height)};
    implementation_->boundsSizeAtFrameBufferEpoch = viewSize;
  }
  recalculateViewGeometry();
}

void TavrelGPUImageView::destroyDisplayFramebuffer() {
  TavrelGPUImageContext::useImageProcessingContext();
  if (implementation_->displayFramebuffer) glDeleteFramebuffers(1, &implementation_->displayFramebuffer);
  implementation_->displayFramebuffer = 0;
  if (!implementation_->displayRenderbuffer) return;
  glBindRenderbuffer(GL_RENDERBUFFER, implementation_->displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->context()->renderbufferStorage(nullptr);
  glDeleteRenderbuffers(1, &implementation_->displayRenderbuffer);
  implementation_->displayRenderbuffer = 0;
}

void TavrelGPUImageView::setDisplayFramebuffer() {
  if (!implementation_->displayFramebuffer) createDisplayFramebuffer();
  glBindFramebuffer(GL_FRAMEBUFFER, implementation_->displayFramebuffer);
  const Size size = sizeInPixels();
  glViewport(0, 0, static_cast<GLsizei>(size.width), static_cast<GLsizei>(size.height));
}

void TavrelGPUImageView::presentFramebuffer() {
  glBindRenderbuffer(GL_RENDERBUFFER, implementation_->displayRenderbuffer);
  TavrelGPUImageContext::sharedImageProcessingContext()->presentBufferForDisplay();
}

void TavrelGPUImageView::recalculateViewGeometry() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    const Rect bounds = implementation_->bounds();
    const Size view = bounds.size;
    const Size inset = rectWithAspectRatioInsideRect(implementation_->inputImageSize, bounds).size;
    double width = 1;
    double height = 1;
    switch (implementation_->fillMode) {
      case kTavrelGPUImageFillModeStretch: break;
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
    implementation_->imageVertices = {-w, -h, w, -h, -w, h, w, h};
  });
}

void TavrelGPUImageView::newFrameReadyAtTime(MediaTime, Index) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    if (!implementation_->displayFramebuffer) createDisplayFramebuffer();
    // Without a display framebuffer there is nothing to draw into until the next layout.
    if (implementation_->displayFramebuffer) {
      NodeSpan::noteDrawing();
      const InputScaling::Scaled* const scaled = implementation_->scaledInput(sizeInPixels());
      implementation_->displayProgram.use();
      setDisplayFramebuffer();
      implementation_->drawInput(sizeInPixels(), scaled);
      implementation_->scaling.letGo();
      presentFramebuffer();
      if (Tracer::isOn()) Tracer::count(TraceNames::shared().framesShown);
    }
    implementation_->inputFramebufferForDisplay = {};
  });
}

bool TavrelGPUImageView::Implementation::drawPendingInput(Size size) const {
  const auto& framebuffer = inputFramebufferForDisplay.get();
  if (!framebuffer) return false;
  const AffineTransform map = PendingDrawing::mapOf(textureCoordinatesForRotation(inputRotation));
  const GLfloat* const whole = TavrelGPUImageFilter::fullFrameVertices();
  if (!std::equal(imageVertices.begin(), imageVertices.end(), whole) ||
      !PendingDrawing::meetsPixels(map, size, framebuffer->size())) {
    return false;
  }
  auto drawing = FramebufferContents::take(*framebuffer);
  if (!drawing) return false;
  drawing->turn(map, size);
  drawing->draw();
  return true;
}

const InputScaling::Scaled* TavrelGPUImageView::Implementation::scaledInput(Size size) {
  const Size shown = {size.width * static_cast<double>(imageVertices[6]),
                      size.height * static_cast<double>(imageVertices[7])};
  return scaling.scale(inputFramebufferForDisplay, textureCoordinatesForRotation(inputRotation), shown);
}

void TavrelGPUImageView::Implementation::drawInput(Size size, const InputScaling::Scaled* scaled) const {
  if (drawPendingInput(size)) return;
  glClearColor(backgroundColorRed, backgroundColorGreen, backgroundColorBlue, backgroundColorAlpha);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  const auto& shown = scaled ? scaled->framebuffer : inputFramebufferForDisplay;
  displayProgram.setTexture(0, QuadTexture(shown.get().get()), 4,
                            scaled ? scaled->corners.data() : textureCoordinatesForRotation(inputRotation));
  displayProgram.draw(imageVertices.data());
}

void TavrelGPUImageView::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    if (newInputFramebuffer) FramebufferContents::accept(*newInputFramebuffer);
    implementation_->inputFramebufferForDisplay = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
  });
}

void TavrelGPUImageView::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { implementation_->inputRotation = newInputRotation; });
}

void TavrelGPUImageView::setInputSize(Size newSize, Index) {
  if (!isFinite(newSize)) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const Size rotated = TavrelGPUImageRotatedSize(newSize, implementation_->inputRotation);
    if (rotated == implementation_->inputImageSize) return;
    implementation_->inputImageSize = rotated;
    recalculateViewGeometry();
  });
}

}  // namespace tavrel
