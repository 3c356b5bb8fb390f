#include "GPUImage/Sources/TavrelGPUImageCVPixelBufferInput.h"

#include <fmt/format.h>

#include <utility>

#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Sources/Private/PicturePlanes.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {

struct TavrelGPUImageCVPixelBufferInput::Implementation {
  std::shared_ptr<TextureCacheTexture> textureRef;
  const std::shared_ptr<DispatchSemaphore> frameRenderingSemaphore = std::make_shared<DispatchSemaphore>(1);
};

TavrelGPUImageCVPixelBufferInput::TavrelGPUImageCVPixelBufferInput()
    : implementation_(std::make_unique<Implementation>()) {}

TavrelGPUImageCVPixelBufferInput::~TavrelGPUImageCVPixelBufferInput() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    implementation_->textureRef.reset();
  });
}

const std::shared_ptr<TextureCacheTexture>& TavrelGPUImageCVPixelBufferInput::textureRef() const {
  return implementation_->textureRef;
}

const std::shared_ptr<DispatchSemaphore>& TavrelGPUImageCVPixelBufferInput::frameRenderingSemaphore() const {
  return implementation_->frameRenderingSemaphore;
}

bool TavrelGPUImageCVPixelBufferInput::processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            bool wait) {
  return processCVPixelBuffer(pixelBuffer, MediaTime::indefinite(), wait);
}

bool TavrelGPUImageCVPixelBufferInput::processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            MediaTime frameTime, bool wait,
                                                            const std::function<void()>&) {
  if (!pixelBuffer) {
    ConsoleLog::write("TavrelGPUImageCVPixelBufferInput was given no pixel buffer to process");
    return false;
  }
  if (wait) {
    frameRenderingSemaphore()->wait();
  } else if (!frameRenderingSemaphore()->tryWait()) {
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
        frameRenderingSemaphore()->signal();
      });
  return true;
}

void TavrelGPUImageCVPixelBufferInput::deliver(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime) {
  TavrelGPUImageContext::useImageProcessingContext();
  const NodeSpan span(*this);
  TextureCache& textureCache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  implementation_->textureRef.reset();
  if (const auto planes = PixelBuffer::planesOf(pixelBuffer)) {
    const auto framebuffer = PicturePlanes::framebufferOf(planes);
    setOutputFramebuffer(framebuffer);
    return handOver({.frameTime = frameTime,
                     .size = framebuffer->size(),
                     .sizeFirst = true,
                     .skipsDisabledTargets = true,
                     .toIgnoredTarget = HandOver::ToIgnoredTarget::framebuffer});
  }
  auto texture = textureCache.createTextureFromPixelBuffer(pixelBuffer);
  if (!texture) fatalAssertion("CVOpenGLESTextureCacheCreateTextureFromImage error: {}", texture.error().code);
  implementation_->textureRef = *texture;
  // A consumer may still draw this frame on another queue when the caller already reuses the buffer.
  const auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(*texture);
  setOutputFramebuffer(framebuffer);
  handOver({.frameTime = frameTime,
            .size = framebuffer->size(),
            .sizeFirst = true,
            .oneByOne = true,
            .skipsDisabledTargets = true,
            .toIgnoredTarget = HandOver::ToIgnoredTarget::framebuffer});
}

}  // namespace tavrel
