#include "GPUImage/Filters/TavrelGPUImageFilter.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "GPUImage/Private/LinkedProgram.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Private/Resource.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"

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
                                           std::initializer_list<std::string_view> attributes) {
  TavrelRunSynchronouslyOnVideoProcessingQueue(
      [&] { useFilterProgram(vertexShaderString, fragmentShaderString, attributes); });
}

void TavrelGPUImageFilter::useFilterProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString,
                                            std::initializer_list<std::string_view> attributes) {
  TavrelGPUImageContext::useImageProcessingContext();
  filterProgram = linkedProgram(*TavrelGPUImageContext::sharedImageProcessingContext(), vertexShaderString,
                                fragmentShaderString, attributes);
  filterPositionAttribute = filterProgram->attributeIndex("position");
  filterTextureCoordinateAttribute = filterProgram->attributeIndex("inputTextureCoordinate");
  filterInputTextureUniform = filterProgram->uniformIndex("inputImageTexture");
  TavrelGPUImageContext::setActiveShaderProgram(filterProgram);
  glEnableVertexAttribArray(filterPositionAttribute);
  glEnableVertexAttribArray(filterTextureCoordinateAttribute);
}

TavrelGPUImageFilter::~TavrelGPUImageFilter() = default;

std::string TavrelGPUImageFilter::readFragmentShader(const std::filesystem::path& file) {
  return readResource(file, "fsh").value_or(std::string());
}

void TavrelGPUImageFilter::useNextFrameForImageCapture() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    usingNextFrameForImageCapture = true;
    imageCaptureSemaphore.tryWait();
  });
}

std::shared_ptr<Image> TavrelGPUImageFilter::newCGImageFromCurrentlyProcessedOutput() {
  if (!imageCaptureSemaphore.wait(std::chrono::seconds(3))) return nullptr;
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
  // The pass that drew it may still be telling the targets.
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    framebuffer = framebufferForOutput();
    usingNextFrameForImageCapture = false;
  });
  imageCaptureSemaphore.signal();
  return framebuffer ? framebuffer->newCGImageFromFramebufferContents() : nullptr;
}

void TavrelGPUImageFilter::renderToTexture(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  if (preventRendering_) {
    unlockInputs();
    return;
  }
  drawInputs(vertices, textureCoordinates);
  unlockInputs();
  if (!usingNextFrameForImageCapture) return;
  framebufferForOutput()->lock();
  imageCaptureSemaphore.signal();
}

void TavrelGPUImageFilter::drawInputs(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  TavrelGPUImageContext::setActiveShaderProgram(filterProgram);
  const auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(
      sizeOfFBO(), outputTextureOptions(), false);
  setOutputFramebuffer(framebuffer);
  framebuffer->activateFramebuffer();
  setUniformsForProgramAtIndex(0);
  clearToBackgroundColor();
  bindInputs();
  setCorners(filterPositionAttribute, vertices);
  setCorners(filterTextureCoordinateAttribute, textureCoordinates);
  drawQuad();
}

void TavrelGPUImageFilter::clearToBackgroundColor() const {
  glClearColor(backgroundColorRed, backgroundColorGreen, backgroundColorBlue, backgroundColorAlpha);
  glClear(GL_COLOR_BUFFER_BIT);
}

void TavrelGPUImageFilter::bindInputs() {
  bindTexture(firstInputFramebuffer, 2, filterInputTextureUniform);
}

void TavrelGPUImageFilter::unlockInputs() {
  firstInputFramebuffer.release();
}

void TavrelGPUImageFilter::bindTexture(const TavrelGPUImageFramebufferLease& framebuffer, GLint unit,
                                       GLint samplerUniform) {
  glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
  glBindTexture(GL_TEXTURE_2D, framebuffer.texture());
  glUniform1i(samplerUniform, unit);
}

void TavrelGPUImageFilter::setCorners(GLuint attribute, const GLfloat* corners) {
  glVertexAttribPointer(attribute, 2, GL_FLOAT, GL_FALSE, 0, corners);
}

void TavrelGPUImageFilter::drawQuad() {
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

GLint TavrelGPUImageFilter::uniformIndex(std::string_view name) const {
  GLint location = -1;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    location = filterProgram->uniformIndex(name);
  });
  return location;
}

void TavrelGPUImageFilter::informTargetsAboutNewFrameAtTime(MediaTime frameTime) {
  if (preventRendering_) return;
  NodeSpan::notePassedOn();
  if (const auto block = frameProcessingCompletionBlock()) block(*this, frameTime);
  handOver({.frameTime = frameTime, .size = outputFrameSize()});
}

void TavrelGPUImageFilter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  renderToTexture(fullFrameVertices(), textureCoordinatesForRotation(inputRotation_));
  informTargetsAboutNewFrameAtTime(frameTime);
}

void TavrelGPUImageFilter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) {
  firstInputFramebuffer = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
}

void TavrelGPUImageFilter::setInputSize(Size newSize, Index atIndex) {
  if (preventRendering_) return;
  setInputTextureSize(overrideInputSize() ? inputSizeUnderOverride(newSize) : rotatedSize(newSize, atIndex));
  setupFilterForSize(sizeOfFBO());
}

void TavrelGPUImageFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) {
  inputRotation_ = newInputRotation;
}

void TavrelGPUImageFilter::endProcessing() {
  if (isEndProcessing) return;
  isEndProcessing = true;
  for (const auto& target : targets()) target->endProcessing();
}

}  // namespace tavrel
