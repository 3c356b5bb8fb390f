#include "GPUImage/Filters/TavrelGPUImageFilter.h"

#include <chrono>
#include <string>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/Private/Resource.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

const char* const kTavrelGPUImageVertexShaderString =
    "attribute vec4 position; attribute vec4 inputTextureCoordinate; varying vec2 textureCoordinate; void main() { "
    "gl_Position = position; textureCoordinate = inputTextureCoordinate.xy; }";
const char* const kTavrelGPUImagePassthroughFragmentShaderString =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
    "texture2D(inputImageTexture, textureCoordinate); }";
const char* const kTavrelGPUImageColorSwizzlingFragmentShaderString =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
    "texture2D(inputImageTexture, textureCoordinate).bgra; }";

TavrelGPUImageFilter::TavrelGPUImageFilter() : TavrelGPUImageFilter(kTavrelGPUImagePassthroughFragmentShaderString) {}

TavrelGPUImageFilter::TavrelGPUImageFilter(std::string_view fragmentShaderString)
    : TavrelGPUImageFilter(kTavrelGPUImageVertexShaderString, fragmentShaderString) {}

TavrelGPUImageFilter::TavrelGPUImageFilter(std::string_view vertexShaderString, std::string_view fragmentShaderString,
                                           std::initializer_list<std::string_view> attributes)
    : implementation_(std::make_unique<Implementation>()) {
  onVideoProcessingQueue([&] { implementation_->useProgram(vertexShaderString, fragmentShaderString, attributes); });
  allowFusion();
}

void TavrelGPUImageFilter::useFilterProgram(std::string_view vertexShaderString,
                                            std::string_view fragmentShaderString) {
  onVideoProcessingQueue([&] { implementation_->useProgram(vertexShaderString, fragmentShaderString); });
}

TavrelGPUImageFilter::~TavrelGPUImageFilter() = default;

// In a constructor the type is the class that it belongs to.
void TavrelGPUImageFilter::allowFusion() { implementation_->fusion.setType(typeid(*this)); }

std::string TavrelGPUImageFilter::readFragmentShader(const std::filesystem::path& file) {
  return readResource(file, "fsh").value_or(std::string());
}

QuadTexture TavrelGPUImageFilter::Implementation::textureOf(const TavrelGPUImageFramebufferLease& input) {
  if (input) return QuadTexture(input.get().get());
  static const QuadTexture transparentTexture = [] {
    constexpr std::array<std::uint8_t, 4> kPixel{};
    QuadTexture texture;
    glGenTextures(1, &texture.name);
    glBindTexture(GL_TEXTURE_2D, texture.name);
    // Without mipmaps only these filters make it a complete texture.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, kPixel.data());
    return texture;
  }();
  return transparentTexture;
}

void TavrelGPUImageFilter::useNextFrameForImageCapture() {
  onVideoProcessingQueue([this] {
    implementation_->usingNextFrameForImageCapture = true;
    implementation_->imageCaptureSemaphore.tryWait();
    if (!implementation_->capturedFramebuffer) return;
    // Nobody fetched it.
    removeOutputFramebuffer();
    implementation_->capturedFramebuffer = {};
  });
}

std::shared_ptr<Image> TavrelGPUImageFilter::newCGImageFromCurrentlyProcessedOutput() {
  if (!implementation_->imageCaptureSemaphore.wait(std::chrono::seconds(3))) return nullptr;
  auto image = onVideoProcessingQueue([this]() -> std::shared_ptr<Image> {
    if (!implementation_->capturedFramebuffer) return nullptr;
    implementation_->usingNextFrameForImageCapture = false;
    removeOutputFramebuffer();
    // The image ends the lock.
    return implementation_->capturedFramebuffer.detach()->newCGImageFromFramebufferContents();
  });
  implementation_->imageCaptureSemaphore.signal();
  return image;
}

bool TavrelGPUImageFilter::keepsOutput() const {
  return implementation_->capturedFramebuffer && implementation_->capturedFramebuffer.get() == framebufferForOutput();
}

void TavrelGPUImageFilter::renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  Implementation& state = *implementation_;
  const auto defers = [&] {
    return vertices == fullFrameVertices() && state.fusion.keepsVertices() && state.defer(*this, textureCoordinates);
  };
  if (!state.preventRendering && !defers()) drawInputs(vertices, textureCoordinates);
  unlockInputs();
}

bool TavrelGPUImageFilter::Implementation::defer(TavrelGPUImageFilter& self, const GLfloat* corners) {
  auto drawing = fusion.drawingOf(self, firstInputFramebuffer, corners, secondInput);
  if (!drawing) return false;
  auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(self.sizeOfFBO(), {}, false);
  FramebufferContents::defer(*framebuffer, std::move(*drawing));
  self.setOutputFramebuffer(std::move(framebuffer));
  return true;
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFilter::fetchFramebuffer() {
  TavrelGPUTextureOptions options = outputTextureOptions();
  const bool isDeep = implementation_->isInputDeep || TavrelGPUImageContext::worksDeep();
  if (isDeep && options == TavrelGPUTextureOptions{}) {
    options = TavrelGPUImageContext::deepTextureOptions().value_or(options);
  }
  auto framebuffer =
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(sizeOfFBO(), options, false);
  framebuffer->activateFramebuffer();
  return framebuffer;
}

void TavrelGPUImageFilter::drawInputs(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  Implementation& state = *implementation_;
  if (state.firstInputFramebuffer) FramebufferContents::draw(*state.firstInputFramebuffer.get());
  scaleInputs(vertices, textureCoordinates);
  state.filterProgram.use();
  setOutputFramebuffer(fetchFramebuffer());
  setUniformsForProgramAtIndex(0);
  glClearColor(state.backgroundColorRed, state.backgroundColorGreen, state.backgroundColorBlue,
               state.backgroundColorAlpha);
  glClear(GL_COLOR_BUFFER_BIT);
  bindInputs(textureCoordinates);
  state.filterProgram.draw(vertices);
  state.scaling.letGo();
}

Size TavrelGPUImageFilter::drawnSize(const GLfloat*) const { return sizeOfFBO(); }

void TavrelGPUImageFilter::scaleInputs(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  Implementation& state = *implementation_;
  state.scaledInput = state.scaling.scale(state.firstInputFramebuffer, textureCoordinates, drawnSize(vertices));
}

void TavrelGPUImageFilter::bindInputs(const GLfloat* textureCoordinates) {
  const Implementation& state = *implementation_;
  if (state.scaledInput) {
    const auto& [framebuffer, corners] = *state.scaledInput;
    state.filterProgram.setTexture(0, QuadTexture(framebuffer.get().get()), 2, corners.data());
  } else {
    state.filterProgram.setTexture(0, Implementation::textureOf(state.firstInputFramebuffer), 2, textureCoordinates);
  }
}

void TavrelGPUImageFilter::unlockInputs() { implementation_->firstInputFramebuffer.release(); }

void TavrelGPUImageFilter::informTargetsAboutNewFrameAtTime(MediaTime frameTime) {
  passOn({.frameTime = frameTime, .size = outputFrameSize()});
}

void TavrelGPUImageFilter::passOn(const HandOver& frame) {
  if (implementation_->preventRendering) return;
  const auto block = frameProcessingCompletionBlock();
  if (const auto output = framebufferForOutput(); output && (block || implementation_->usingNextFrameForImageCapture)) {
    FramebufferContents::draw(*output);
  }
  if (Rehearsal::current()) return handOver(frame);
  NodeSpan::notePassedOn();
  if (implementation_->usingNextFrameForImageCapture && !implementation_->capturedFramebuffer) {
    implementation_->capturedFramebuffer = TavrelGPUImageFramebufferLease(framebufferForOutput());
    implementation_->imageCaptureSemaphore.signal();
  }
  if (block) block(*this, frame.frameTime);
  handOver(frame);
}

void TavrelGPUImageFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  renderToTextureWithVertices(fullFrameVertices(), textureCoordinatesForRotation(implementation_->inputRotation));
  informTargetsAboutNewFrameAtTime(frameTime);
}

void TavrelGPUImageFilter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) {
  onVideoProcessingQueue([&] {
    implementation_->isInputDeep = newInputFramebuffer && newInputFramebuffer->textureOptions().isDeep();
    if (newInputFramebuffer && implementation_->fusion.accepts(*this))
      FramebufferContents::accept(*newInputFramebuffer);
    implementation_->firstInputFramebuffer = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
  });
}

void TavrelGPUImageFilter::setInputSize(Size newSize, Index) {
  if (!isFinite(newSize)) return;
  onVideoProcessingQueue([&] {
    if (implementation_->preventRendering) return;
    setInputTextureSize(workingSize(newSize));
    setupFilterForSize(sizeOfFBO());
  });
}

void TavrelGPUImageFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) {
  onVideoProcessingQueue([&] { implementation_->inputRotation = newInputRotation; });
}

void TavrelGPUImageFilter::endProcessing() {
  onVideoProcessingQueue([this] {
    if (std::exchange(implementation_->isEndProcessing, true)) return;
    for (const auto& target : targets()) target->endProcessing();
  });
}

TAVREL_NODE_PROPERTY(TavrelGPUImageFilter, bool, preventRendering, setPreventRendering)
TAVREL_NODE_PROPERTY(TavrelGPUImageFilter, bool, currentlyReceivingMonochromeInput,
                     setCurrentlyReceivingMonochromeInput)
TAVREL_NODE_VALUE(TavrelGPUImageFilter, TavrelGPUImageRotationMode, inputRotation)

std::shared_ptr<TavrelGLProgram> TavrelGPUImageFilter::program() const {
  return onVideoProcessingQueue([this] { return implementation_->filterProgram.program(); });
}

GLint TavrelGPUImageFilter::uniformIndex(std::string_view name) const {
  return onVideoProcessingQueue([&] {
    implementation_->filterProgram.use();
    return implementation_->filterProgram.program()->uniformIndex(name);
  });
}

}  // namespace tavrel
