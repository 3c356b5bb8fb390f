// The writer's own GL context and the pixel buffer that frames are drawn into.
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/LinkedProgram.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

Expected<void> TavrelGPUImageMovieWriter::initializeRendering() {
  movieWriterContext_ = std::make_shared<TavrelGPUImageContext>();
  movieWriterContext_->useSharegroup(TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup());
  if (auto prepared = movieWriterContext_->prepareContext(); !prepared) return prepared;

  movieWriterContext_->contextQueue()->async([] { Tracer::nameThread("writer queue"); });
  TavrelRunSynchronouslyOnContextQueue(*movieWriterContext_, [this] {
    movieWriterContext_->useAsCurrentContext();
    // A pixel buffer is drawn into directly; what is read back as RGBA is drawn with red and blue exchanged.
    colorSwizzlingProgram_ = linkedProgram(*movieWriterContext_, kTavrelGPUImageVertexShaderString,
                                           TavrelGPUImageContext::supportsFastTextureUpload()
                                               ? kTavrelGPUImagePassthroughFragmentShaderString
                                               : kTavrelGPUImageColorSwizzlingFragmentShaderString,
                                           {"position", "inputTextureCoordinate"});
    colorSwizzlingPositionAttribute_ = colorSwizzlingProgram_->attributeIndex("position");
    colorSwizzlingTextureCoordinateAttribute_ = colorSwizzlingProgram_->attributeIndex("inputTextureCoordinate");
    colorSwizzlingInputTextureUniform_ = colorSwizzlingProgram_->uniformIndex("inputImageTexture");
    movieWriterContext_->setContextShaderProgram(colorSwizzlingProgram_);
    glEnableVertexAttribArray(colorSwizzlingPositionAttribute_);
    glEnableVertexAttribArray(colorSwizzlingTextureCoordinateAttribute_);
  });
  return {};
}

bool TavrelGPUImageMovieWriter::createDataFBO() {
  glActiveTexture(GL_TEXTURE1);
  glGenFramebuffers(1, &movieFramebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, movieFramebuffer_);
  if (TavrelGPUImageContext::supportsFastTextureUpload()) {
    if (!attachRenderTarget()) {
      glDeleteFramebuffers(1, &movieFramebuffer_);
      movieFramebuffer_ = 0;
      return false;
    }
  } else {
    glGenRenderbuffers(1, &movieRenderbuffer_);
    glBindRenderbuffer(GL_RENDERBUFFER, movieRenderbuffer_);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8_OES, static_cast<GLsizei>(videoSize_.width),
                          static_cast<GLsizei>(videoSize_.height));
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, movieRenderbuffer_);
  }
  const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
  if (status != GL_FRAMEBUFFER_COMPLETE) fatalAssertion("Incomplete filter FBO: {}", status);
  return true;
}

bool TavrelGPUImageMovieWriter::attachRenderTarget() {
  const std::shared_ptr<PixelBufferPool> pool = assetWriterPixelBufferInput_->pixelBufferPool();
  if (!pool) return false;  // writing could not be started
  auto target = pool->createPixelBuffer();
  if (!target) return false;
  renderTarget_ = *target;
  for (const auto& [key, value] : {std::pair(kPixelBufferColorPrimariesKey, kColorPrimariesITU_R_709_2),
                                   std::pair(kPixelBufferYCbCrMatrixKey, kYCbCrMatrixITU_R_601_4),
                                   std::pair(kPixelBufferTransferFunctionKey, kTransferFunctionITU_R_709_2)}) {
    renderTarget_->setAttachment(std::string(key), std::string(value), true);
  }

  auto texture = movieWriterContext_->coreVideoTextureCache()->createTextureFromPixelBuffer(
      renderTarget_, GL_RGBA, static_cast<GLsizei>(videoSize_.width), static_cast<GLsizei>(videoSize_.height),
      GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (!texture) {
    renderTarget_.reset();
    return false;
  }
  renderTexture_ = *texture;
  glBindTexture(renderTexture_->target(), renderTexture_->name());
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, renderTexture_->name(), 0);
  return true;
}

void TavrelGPUImageMovieWriter::destroyDataFBO() {
  if (!colorSwizzlingProgram_) return;  // there was no context
  runOnWriterQueue([this] {
    movieWriterContext_->useAsCurrentContext();
    if (movieFramebuffer_) glDeleteFramebuffers(1, &movieFramebuffer_);
    if (movieRenderbuffer_) glDeleteRenderbuffers(1, &movieRenderbuffer_);
    movieFramebuffer_ = 0;
    movieRenderbuffer_ = 0;
    renderTexture_.reset();
    renderTarget_.reset();
  });
}

bool TavrelGPUImageMovieWriter::setFilterFBO() {
  if (!movieFramebuffer_ && !createDataFBO()) return false;
  glBindFramebuffer(GL_FRAMEBUFFER, movieFramebuffer_);
  glViewport(0, 0, static_cast<GLsizei>(videoSize_.width), static_cast<GLsizei>(videoSize_.height));
  return true;
}

std::shared_ptr<PixelBuffer> TavrelGPUImageMovieWriter::readyPixelBuffer(
    const TavrelGPUImageFramebuffer& framebuffer) const {
  const bool isAsWanted = framebuffer.size() == videoSize_ && inputRotation_ == kTavrelGPUImageNoRotation;
  const bool hasStarted = assetWriterPixelBufferInput_->pixelBufferPool() != nullptr;
  if (!isAsWanted || !hasStarted || !framebuffer.renderTarget()) return nullptr;
  // Its bytes are read on this thread, by this context.
  movieWriterContext_->useAsCurrentContext();
  return framebuffer.renderTarget();
}

bool TavrelGPUImageMovieWriter::renderAtInternalSizeUsingFramebuffer(const TavrelGPUImageFramebuffer& framebuffer) {
  if (!colorSwizzlingProgram_) return false;
  movieWriterContext_->useAsCurrentContext();
  if (!setFilterFBO()) return false;
  if (renderTarget_) renderTarget_->noteGPUWrite();
  movieWriterContext_->setContextShaderProgram(colorSwizzlingProgram_);
  glClearColor(1.0F, 0.0F, 0.0F, 1.0F);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, framebuffer.texture());
  glUniform1i(colorSwizzlingInputTextureUniform_, 4);
  glVertexAttribPointer(colorSwizzlingPositionAttribute_, 2, GL_FLOAT, GL_FALSE, 0,
                        TavrelGPUImageFilter::fullFrameVertices());
  glVertexAttribPointer(colorSwizzlingTextureCoordinateAttribute_, 2, GL_FLOAT, GL_FALSE, 0,
                        TavrelGPUImageFilter::textureCoordinatesForRotation(inputRotation_));
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  glFinish();
  return true;
}

std::shared_ptr<PixelBuffer> TavrelGPUImageMovieWriter::drawnPixelBuffer() {
  if (renderTarget_) return renderTarget_;
  const std::shared_ptr<PixelBufferPool> pool = assetWriterPixelBufferInput_->pixelBufferPool();
  if (!pool) return nullptr;
  auto created = pool->createPixelBuffer();
  if (!created) return nullptr;
  const std::shared_ptr<PixelBuffer>& pixelBuffer = *created;
  pixelBuffer->lockBaseAddress(PixelBufferLock::readWrite);
  glReadPixels(0, 0, static_cast<GLsizei>(videoSize_.width), static_cast<GLsizei>(videoSize_.height), GL_RGBA,
               GL_UNSIGNED_BYTE, pixelBuffer->baseAddress());
  pixelBuffer->unlockBaseAddress(PixelBufferLock::readWrite);
  return pixelBuffer;
}

}  // namespace tavrel
