#include "GPUImage/Filters/TavrelGPUImageTwoPassFilter.h"

#include <utility>

#include "GPUImage/Private/LinkedProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"

namespace tavrel {

TavrelGPUImageTwoPassFilter::TavrelGPUImageTwoPassFilter(std::string_view firstStageFragmentShaderString,
                                                         std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageTwoPassFilter(kTavrelGPUImageVertexShaderString, firstStageFragmentShaderString,
                                  kTavrelGPUImageVertexShaderString, secondStageFragmentShaderString) {}

TavrelGPUImageTwoPassFilter::TavrelGPUImageTwoPassFilter(std::string_view firstStageVertexShaderString,
                                                         std::string_view firstStageFragmentShaderString,
                                                         std::string_view secondStageVertexShaderString,
                                                         std::string_view secondStageFragmentShaderString)
    : TavrelGPUImageFilter(firstStageVertexShaderString, firstStageFragmentShaderString) {
  TavrelRunSynchronouslyOnVideoProcessingQueue(
      [&] { useSecondProgram(secondStageVertexShaderString, secondStageFragmentShaderString); });
}

void TavrelGPUImageTwoPassFilter::useSecondProgram(std::string_view vertexShader, std::string_view fragmentShader) {
  TavrelGPUImageContext::useImageProcessingContext();
  secondFilterProgram = linkedProgram(*TavrelGPUImageContext::sharedImageProcessingContext(), vertexShader,
                                      fragmentShader, {"position", "inputTextureCoordinate"});
  secondFilterPositionAttribute = secondFilterProgram->attributeIndex("position");
  secondFilterTextureCoordinateAttribute = secondFilterProgram->attributeIndex("inputTextureCoordinate");
  secondFilterInputTextureUniform = secondFilterProgram->uniformIndex("inputImageTexture");
  secondFilterInputTextureUniform2 = secondFilterProgram->uniformIndex("inputImageTexture2");
  TavrelGPUImageContext::setActiveShaderProgram(secondFilterProgram);
  glEnableVertexAttribArray(secondFilterPositionAttribute);
  glEnableVertexAttribArray(secondFilterTextureCoordinateAttribute);
}

void TavrelGPUImageTwoPassFilter::setAndExecuteUniformStateCallbackAtIndex(
    GLint uniform, const std::shared_ptr<TavrelGLProgram>& forProgram, std::function<void()> uniformStateBlock) {
  if (forProgram == filterProgram) {
    TavrelGPUImageFilter::setAndExecuteUniformStateCallbackAtIndex(uniform, forProgram, std::move(uniformStateBlock));
    return;
  }
  std::function<void()>& stored = secondProgramUniformStateRestorationBlocks[uniform];
  stored = std::move(uniformStateBlock);
  stored();
}

void TavrelGPUImageTwoPassFilter::setUniformsForProgramAtIndex(std::size_t programIndex) {
  if (programIndex == 0) {
    TavrelGPUImageFilter::setUniformsForProgramAtIndex(programIndex);
    return;
  }
  for (const auto& [uniform, restore] : secondProgramUniformStateRestorationBlocks) restore();
}

void TavrelGPUImageTwoPassFilter::renderToTexture(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  if (preventRendering()) {
    unlockInputs();
    return;
  }
  renderPasses(vertices, textureCoordinates);
  captureOutput();
}

void TavrelGPUImageTwoPassFilter::renderPasses(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  drawInputs(vertices, textureCoordinates);
  firstInputFramebuffer = {};

  const auto intermediate = TavrelGPUImageFramebufferLease::adopt(TavrelGPUImageFilter::framebufferForOutput());
  setOutputFramebuffer(nullptr);
  secondOutputFramebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(
      sizeOfFBO(), outputTextureOptions(), false);
  secondOutputFramebuffer->activateFramebuffer();
  TavrelGPUImageContext::setActiveShaderProgram(secondFilterProgram);
  setUniformsForProgramAtIndex(1);
  bindTexture(intermediate, 3, secondFilterInputTextureUniform);
  setCorners(secondFilterPositionAttribute, vertices);
  setCorners(secondFilterTextureCoordinateAttribute, textureCoordinatesForRotation(kTavrelGPUImageNoRotation));
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  drawQuad();
}

void TavrelGPUImageTwoPassFilter::captureOutput() {
  if (!usingNextFrameForImageCapture) return;
  secondOutputFramebuffer->lock();
  imageCaptureSemaphore.signal();
}

}  // namespace tavrel
