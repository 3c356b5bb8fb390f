#include "GPUImage/Sources/TavrelGPUImageCVPixelBufferInput.h"

#include <fmt/format.h>

#include <utility>

#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {

TavrelGPUImageCVPixelBufferInput::~TavrelGPUImageCVPixelBufferInput() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    textureRef.reset();
  });
}

bool TavrelGPUImageCVPixelBufferInput::processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            bool wait) {
  return processCVPixelBuffer(pixelBuffer, MediaTime::indefinite(), wait);
}

bool TavrelGPUImageCVPixelBufferInput::processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            MediaTime frameTime, bool wait,
                                                            const std::function<void()>&) {
  if (wait) {
    frameRenderingSemaphore->wait();
  } else if (!frameRenderingSemaphore->tryWait()) {
    return false;
  }
  if (pixelBuffer->pixelFormat() != PixelFormat::bgra32) {
    fatalAssertion("<TavrelGPUImageCVPixelBufferInput: {}>: only kCVPixelFormatType_32BGRA is supported currently.",
                   fmt::ptr(this));
  }
  pixelBuffer->lockBaseAddress(PixelBufferLock::readOnly);
  // A camera counts its frames itself, those that it drops as well.
  if (Tracer::isOn() && FrameTrace::current().number == 0) Tracer::count(TraceNames::shared().framesIn);
  TavrelRunAsynchronouslyOnVideoProcessingQueue(
      [this, self = shared_from_this(), pixelBuffer, frameTime, wait = QueueWait(FrameTrace::currentOrArriving())] {
        const FrameTrace::Scope frame = wait.end(TraceNames::shared().videoProcessingQueue);
        deliver(pixelBuffer, frameTime);
        pixelBuffer->unlockBaseAddress(PixelBufferLock::readOnly);
        frameRenderingSemaphore->signal();
      });
  return true;
}

void TavrelGPUImageCVPixelBufferInput::deliver(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime) {
  TavrelGPUImageContext::useImageProcessingContext();
  const NodeSpan span(*this);
  const auto width = static_cast<GLsizei>(pixelBuffer->width());
  const auto height = static_cast<GLsizei>(pixelBuffer->height());
  TextureCache& textureCache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();

  textureRef.reset();
  auto texture =
      textureCache.createTextureFromPixelBuffer(pixelBuffer, GL_RGBA, width, height, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 0);
  if (!texture) {
    fatalAssertion("CVOpenGLESTextureCacheCreateTextureFromImage error: {}", texture.error().code);
  }
  textureRef = *texture;
  glActiveTexture(GL_TEXTURE4);
  glBindTexture(GL_TEXTURE_2D, textureRef->name());
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);

  const Size size = {static_cast<double>(width), static_cast<double>(height)};
  // A consumer may still draw this frame on another queue when the caller already reuses the buffer.
  auto owner = std::make_shared<std::pair<std::shared_ptr<PixelBuffer>, std::shared_ptr<TextureCacheTexture>>>(
      pixelBuffer, textureRef);
  setOutputFramebuffer(std::make_shared<TavrelGPUImageFramebuffer>(size, textureRef->name(), std::move(owner)));
  handOver({.frameTime = frameTime,
            .size = size,
            .sizeFirst = true,
            .oneByOne = true,
            .skipsDisabledTargets = true,
            .toIgnoredTarget = HandOver::ToIgnoredTarget::framebuffer});
}

}  // namespace tavrel
