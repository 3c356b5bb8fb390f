#include "GPUImage/TavrelGPUImageFramebuffer.h"

#include <cstdlib>
#include <utility>

#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Tracing/TraceNames.h"

namespace tavrel {
namespace {

std::atomic<std::int64_t> owned = 0;

}  // namespace

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size, const TavrelGPUTextureOptions& textureOptions,
                                                     bool onlyTexture)
    : size_(size), textureOptions_(textureOptions), missingFramebuffer_(onlyTexture) {
  ++owned;
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().framebuffersCreated);
  if (onlyTexture) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
      TavrelGPUImageContext::useImageProcessingContext();
      generateTexture();
    });
  } else {
    generateFramebuffer();
  }
}

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size)
    : TavrelGPUImageFramebuffer(size, TavrelGPUTextureOptions{}, false) {}

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size, GLuint overriddenTexture,
                                                     std::shared_ptr<const void> textureOwner)
    : size_(size),
      missingFramebuffer_(false),
      isTextureBorrowed_(true),
      textureOwner_(std::move(textureOwner)),
      texture_(overriddenTexture),
      referenceCountingDisabled_(true) {}

TavrelGPUImageFramebuffer::~TavrelGPUImageFramebuffer() {
  if (!isTextureBorrowed_) --owned;
  destroyFramebuffer();
}

std::int64_t TavrelGPUImageFramebuffer::ownedCount() {
  return owned;
}

void TavrelGPUImageFramebuffer::generateTexture() {
  glActiveTexture(GL_TEXTURE1);
  glGenTextures(1, &texture_);
  glBindTexture(GL_TEXTURE_2D, texture_);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, static_cast<GLint>(textureOptions_.minFilter));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, static_cast<GLint>(textureOptions_.magFilter));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(textureOptions_.wrapS));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(textureOptions_.wrapT));
}

void TavrelGPUImageFramebuffer::generateFramebuffer() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    glGenFramebuffers(1, &framebuffer_);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    if (TavrelGPUImageContext::supportsFastTextureUpload()) {
      generateRenderTarget();
    } else {
      generatePlainTexture();
    }
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
    const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    if (status != GL_FRAMEBUFFER_COMPLETE) fatalAssertion("Incomplete filter FBO: {}", status);
    glBindTexture(GL_TEXTURE_2D, 0);
  });
}

void TavrelGPUImageFramebuffer::generateRenderTarget() {
  const auto width = static_cast<GLsizei>(size_.width);
  const auto height = static_cast<GLsizei>(size_.height);
  TextureCache& textureCache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();

  auto target =
      PixelBuffer::create(static_cast<std::size_t>(width), static_cast<std::size_t>(height), PixelFormat::bgra32);
  if (!target) {
    ConsoleLog::write("FBO size: {:f}, {:f}", size_.width, size_.height);
    fatalAssertion("Error at CVPixelBufferCreate {}", target.error().code);
  }
  renderTarget_ = *target;

  auto view =
      textureCache.createTextureFromPixelBuffer(renderTarget_, static_cast<GLint>(textureOptions_.internalFormat),
                                                width, height, textureOptions_.format, textureOptions_.type, 0);
  if (!view) fatalAssertion("Error at CVOpenGLESTextureCacheCreateTextureFromImage {}", view.error().code);
  renderTexture_ = *view;

  // The texture keeps the cache's filtering; only the wrap modes follow the options.
  glBindTexture(renderTexture_->target(), renderTexture_->name());
  texture_ = renderTexture_->name();
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLfloat>(textureOptions_.wrapS));
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLfloat>(textureOptions_.wrapT));
}

void TavrelGPUImageFramebuffer::generatePlainTexture() {
  generateTexture();
  glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(textureOptions_.internalFormat), static_cast<GLsizei>(size_.width),
               static_cast<GLsizei>(size_.height), 0, textureOptions_.format, textureOptions_.type, nullptr);
}

bool TavrelGPUImageFramebuffer::ownsPixelBuffer() const {
  return TavrelGPUImageContext::supportsFastTextureUpload() && !missingFramebuffer_;
}

void TavrelGPUImageFramebuffer::destroyFramebuffer() {
  const GLuint textureToDelete = ownsPixelBuffer() || isTextureBorrowed_ ? 0 : texture_;
  // What belongs to a pixel buffer goes back to the texture cache, which may live on another queue's thread.
  const auto release = [framebuffer = framebuffer_, textureToDelete, target = std::move(renderTarget_),
                        view = std::move(renderTexture_)]() mutable {
    TavrelGPUImageContext::useImageProcessingContext();
    if (framebuffer) glDeleteFramebuffers(1, &framebuffer);
    target.reset();
    view.reset();
    if (textureToDelete) glDeleteTextures(1, &textureToDelete);
  };
  if (!framebuffer_ && !textureToDelete) return;

  // Framebuffer objects belong to one context. On another context's queue nobody may wait for this one, so the names
  // are left to the video-processing queue.
  const void* const running = DispatchQueue::getSpecific(TavrelGPUImageContext::contextKey());
  if (running && running != TavrelGPUImageContext::sharedImageProcessingContext().get()) {
    TavrelGPUImageContext::sharedContextQueue()->async(release);
  } else {
    TavrelRunSynchronouslyOnVideoProcessingQueue(release);
  }
}

void TavrelGPUImageFramebuffer::activateFramebuffer() {
  NodeSpan::noteDrawing();
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glViewport(0, 0, static_cast<GLsizei>(size_.width), static_cast<GLsizei>(size_.height));
  if (renderTarget_) renderTarget_->noteGPUWrite();
}

bool TavrelGPUImageFramebuffer::lock() {
  if (referenceCountingDisabled_) return false;
  ++framebufferReferenceCount_;
  return true;
}

void TavrelGPUImageFramebuffer::unlock() {
  if (referenceCountingDisabled_) return;
  // Tested after the subtraction, since the writer's queue may unlock at the same time as this one.
  const std::int64_t before = framebufferReferenceCount_.fetch_sub(1);
  if (before <= 0) {
    fatalAssertion(
        "Tried to overrelease a framebuffer, did you forget to call -useNextFrameForImageCapture before using "
        "-imageFromCurrentFramebuffer?");
  }
  if (before == 1) TavrelGPUImageContext::sharedFramebufferCache()->returnFramebufferToCache(shared_from_this());
}

void TavrelGPUImageFramebuffer::clearAllLocks() {
  framebufferReferenceCount_ = 0;
}

void TavrelGPUImageFramebuffer::disableReferenceCounting() {
  referenceCountingDisabled_ = true;
}

void TavrelGPUImageFramebuffer::enableReferenceCounting() {
  referenceCountingDisabled_ = false;
}

void TavrelGPUImageFramebuffer::lockForReading() {
  if (!renderTarget_) return;
  const std::lock_guard lock(readMutex_);
  if (readLockCount_ == 0) renderTarget_->lockBaseAddress(PixelBufferLock::readWrite);
  ++readLockCount_;
}

void TavrelGPUImageFramebuffer::unlockAfterReading() {
  if (!renderTarget_) return;
  const std::lock_guard lock(readMutex_);
  if (readLockCount_ == 0) fatalAssertion("Unbalanced call to -[TavrelGPUImageFramebuffer unlockAfterReading]");
  if (--readLockCount_ == 0) renderTarget_->unlockBaseAddress(PixelBufferLock::readWrite);
}

void TavrelGPUImageFramebuffer::restoreRenderTarget() {
  unlockAfterReading();
  const std::lock_guard lock(readMutex_);
  if (!renderTargetHolds_.empty()) renderTargetHolds_.pop_back();
}

std::size_t TavrelGPUImageFramebuffer::bytesPerRow() const {
  return renderTarget_ ? renderTarget_->bytesPerRow() : static_cast<std::size_t>(size_.width * 4);
}

std::uint8_t* TavrelGPUImageFramebuffer::byteBuffer() {
  if (!renderTarget_) return nullptr;
  lockForReading();
  std::uint8_t* const bytes = renderTarget_->baseAddress();
  unlockAfterReading();
  return bytes;
}

std::shared_ptr<PixelBuffer> TavrelGPUImageFramebuffer::pixelBuffer() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {
    TavrelGPUImageContext::useImageProcessingContext();
    glFinish();
  });
  return renderTarget_;
}

std::shared_ptr<Image> TavrelGPUImageFramebuffer::newCGImageFromFramebufferContents() {
  if (textureOptions_.internalFormat != GL_RGBA) {
    fatalAssertion("For conversion to a CGImage the output texture format for this filter must be GL_RGBA.");
  }
  if (textureOptions_.type != GL_UNSIGNED_BYTE) {
    fatalAssertion(
        "For conversion to a CGImage the type of the output texture of this filter must be GL_UNSIGNED_BYTE.");
  }
  const auto width = static_cast<std::size_t>(size_.width);
  const auto height = static_cast<std::size_t>(size_.height);
  std::shared_ptr<Image> image;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    if (ownsPixelBuffer()) {
      const std::size_t rowBytes = bytesPerRow();
      glFinish();
      {
        const std::lock_guard lock(readMutex_);
        renderTargetHolds_.push_back(renderTarget_);
      }
      lockForReading();
      auto* const self = new std::shared_ptr<TavrelGPUImageFramebuffer>(shared_from_this());
      auto provider = DataProvider::create(self, renderTarget_->baseAddress(), rowBytes * height,
                                           &TavrelDataProviderUnlockCallback);
      TavrelGPUImageContext::sharedFramebufferCache()->addFramebufferToActiveImageCaptureList(shared_from_this());
      image = Image::create(width, height, 8, 32, rowBytes,
                            kBitmapByteOrder32Little | static_cast<std::uint32_t>(AlphaInfo::premultipliedFirst),
                            std::move(provider));
    } else {
      const std::size_t byteCount = width * height * 4;
      activateFramebuffer();
      void* const bytes = std::malloc(byteCount);
      if (!bytes) fatalAssertion("Out of memory: {} bytes for an image of {} x {}", byteCount, width, height);
      glReadPixels(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height), GL_RGBA, GL_UNSIGNED_BYTE, bytes);
      auto provider = DataProvider::create(nullptr, bytes, byteCount, &TavrelDataProviderReleaseCallback);
      unlock();
      image = Image::create(width, height, 8, 32, width * 4,
                            kBitmapByteOrderDefault | static_cast<std::uint32_t>(AlphaInfo::last), std::move(provider));
    }
  });
  return image;
}

void TavrelDataProviderReleaseCallback(void*, const void* data, std::size_t) {
  std::free(const_cast<void*>(data));
}

void TavrelDataProviderUnlockCallback(void* info, const void*, std::size_t) {
  const std::unique_ptr<std::shared_ptr<TavrelGPUImageFramebuffer>> owner(
      static_cast<std::shared_ptr<TavrelGPUImageFramebuffer>*>(info));
  const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer = *owner;
  framebuffer->restoreRenderTarget();
  framebuffer->unlock();
  TavrelGPUImageContext::sharedFramebufferCache()->removeFramebufferFromActiveImageCaptureList(framebuffer);
}

}  // namespace tavrel
