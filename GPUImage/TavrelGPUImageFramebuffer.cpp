#include "GPUImage/TavrelGPUImageFramebuffer.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "GPUImage/Private/DeepPixels.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/FramebufferImplementation.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Tracing/TraceNames.h"

namespace tavrel {
namespace {

std::atomic<std::int64_t> owned = 0;
std::atomic<std::uint64_t> uploads = 0;

Size sizeOf(const PixelPlane& plane) { return {static_cast<double>(plane.width), static_cast<double>(plane.height)}; }

}  // namespace

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size, const TavrelGPUTextureOptions& textureOptions,
                                                     bool onlyTexture)
    : implementation_(
          new Implementation{.size = size, .textureOptions = textureOptions, .missingFramebuffer = onlyTexture}) {
  ++owned;
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().framebuffersCreated);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    if (onlyTexture) {
      glGenTextures(1, &implementation_->texture);
      resetSampling();
    } else {
      generateFramebuffer();
    }
  });
}

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size)
    : TavrelGPUImageFramebuffer(size, TavrelGPUTextureOptions{}, false) {}

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(Size size, GLuint overriddenTexture)
    : implementation_(new Implementation{
          .size = size, .isTextureBorrowed = true, .texture = overriddenTexture, .referenceCountingDisabled = true}) {}

TavrelGPUImageFramebuffer::TavrelGPUImageFramebuffer(const std::shared_ptr<TextureCacheTexture>& texture,
                                                     std::size_t plane)
    : TavrelGPUImageFramebuffer(sizeOf(texture->pixelBuffer()->layout().planes[plane]), texture->name()) {
  implementation_->textureOwner = texture;
}

TavrelGPUImageFramebuffer::~TavrelGPUImageFramebuffer() {
  if (!implementation_->isTextureBorrowed) --owned;
  destroyFramebuffer();
}

std::int64_t TavrelGPUImageFramebuffer::ownedCount() { return owned; }

Size TavrelGPUImageFramebuffer::size() const { return implementation_->size; }

const TavrelGPUTextureOptions& TavrelGPUImageFramebuffer::textureOptions() const {
  return implementation_->textureOptions;
}

void TavrelGPUImageFramebuffer::drawPending() const {
  if (implementation_->pending) FramebufferContents::draw(const_cast<TavrelGPUImageFramebuffer&>(*this));
}

GLuint TavrelGPUImageFramebuffer::texture() const {
  drawPending();
  if (implementation_->isSamplingStale) const_cast<TavrelGPUImageFramebuffer*>(this)->resetSampling();
  // Its bytes may have been written since it was drawn.
  if (implementation_->renderTexture) implementation_->renderTexture->refresh();
  return implementation_->texture;
}

bool TavrelGPUImageFramebuffer::missingFramebuffer() const { return implementation_->missingFramebuffer; }

const std::shared_ptr<PixelBuffer>& TavrelGPUImageFramebuffer::renderTarget() const {
  drawPending();
  return implementation_->renderTarget;
}

void TavrelGPUImageFramebuffer::generateFramebuffer() {
  glGenFramebuffers(1, &implementation_->framebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, implementation_->framebuffer);
  if (ownsPixelBuffer()) {
    generateRenderTarget();
    resetSampling();
  } else {
    glGenTextures(1, &implementation_->texture);
    resetSampling();
    uploadPicture(static_cast<GLsizei>(size().width), static_cast<GLsizei>(size().height), textureOptions().format,
                  nullptr);
  }
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture(), 0);
  const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
  if (status != GL_FRAMEBUFFER_COMPLETE) fatalAssertion("Incomplete filter FBO: {}", status);
  glBindTexture(GL_TEXTURE_2D, 0);
}

void TavrelGPUImageFramebuffer::generateRenderTarget() {
  const auto width = static_cast<GLsizei>(size().width);
  const auto height = static_cast<GLsizei>(size().height);
  auto target = PixelBuffer::create(static_cast<std::size_t>(width), static_cast<std::size_t>(height),
                                    PixelFormat::bgra32, PixelBufferUse::byGPU);
  if (!target) {
    ConsoleLog::write("FBO size: {:f}, {:f}", size().width, size().height);
    fatalAssertion("Error at CVPixelBufferCreate {}", target.error().code);
  }
  implementation_->renderTarget = *target;

  const TavrelGPUTextureOptions& options = textureOptions();
  TextureCache& textureCache = *TavrelGPUImageContext::sharedImageProcessingContext()->coreVideoTextureCache();
  auto view = textureCache.createTextureFromPixelBuffer(*target, static_cast<GLint>(options.internalFormat), width,
                                                        height, options.format, options.type, 0);
  if (!view) fatalAssertion("Error at CVOpenGLESTextureCacheCreateTextureFromImage {}", view.error().code);
  implementation_->renderTexture = *view;
  implementation_->texture = (*view)->name();
}

void TavrelGPUImageFramebuffer::uploadPicture(GLsizei width, GLsizei height, GLenum format, const void* pixels) {
  const auto internalFormat = static_cast<GLint>(textureOptions().internalFormat);
  implementation_->visibleArea.reset();
  implementation_->uploadFormat = format;
  glBindTexture(GL_TEXTURE_2D, texture());
  glTexImage2D(GL_TEXTURE_2D, 0, TextureCache::internalFormat(internalFormat, format), width, height, 0, format,
               textureOptions().type, pixels);
  implementation_->uploadNumber = pixels ? ++uploads : 0;
}

std::uint64_t TavrelGPUImageFramebuffer::stillNumber() const {
  return implementation_->referenceCountingDisabled ? implementation_->uploadNumber : 0;
}

void TavrelGPUImageFramebuffer::resetSampling() {
  implementation_->isSamplingStale = false;
  const TavrelGPUTextureOptions& options = textureOptions();
  // A render target of the fast path keeps the texture cache's filtering; only the wrap modes follow the options.
  const bool isFiltered = !implementation_->renderTarget;
  glActiveTexture(GL_TEXTURE1);
  glBindTexture(GL_TEXTURE_2D, implementation_->texture);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, static_cast<GLint>(isFiltered ? options.minFilter : GL_LINEAR));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, static_cast<GLint>(isFiltered ? options.magFilter : GL_LINEAR));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(options.wrapS));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(options.wrapT));
}

bool TavrelGPUImageFramebuffer::ownsPixelBuffer() const {
  return TavrelGPUImageContext::supportsFastTextureUpload() && !missingFramebuffer() && !textureOptions().isDeep();
}

void TavrelGPUImageFramebuffer::destroyFramebuffer() {
  const GLuint framebuffer = implementation_->framebuffer;
  const GLuint textureToDelete = ownsPixelBuffer() || implementation_->isTextureBorrowed ? 0 : implementation_->texture;
  std::shared_ptr<TextureCacheTexture> owner = std::move(implementation_->textureOwner);
  const bool isMemoryInUse = owner && owner->pixelBuffer()->sharesMemory();
  // What belongs to a pixel buffer goes back to the texture cache, which may live on another queue's thread.
  auto release = [framebuffer, textureToDelete, target = std::move(implementation_->renderTarget),
                  view = std::move(implementation_->renderTexture), owner = std::move(owner), isMemoryInUse]() mutable {
    TavrelGPUImageContext::useImageProcessingContext();
    if (isMemoryInUse) glFlush();  // the memory's next owner waits for what was sent off
    if (framebuffer) glDeleteFramebuffers(1, &framebuffer);
    target.reset();
    view.reset();
    owner.reset();
    if (textureToDelete) glDeleteTextures(1, &textureToDelete);
  };
  if (!framebuffer && !textureToDelete && !isMemoryInUse) return;

  // Framebuffer objects belong to one context. On another context's queue nobody may wait for this one, so the names
  // are left to the video-processing queue.
  const void* const running = DispatchQueue::getSpecific(TavrelGPUImageContext::contextKey());
  if (running && running != TavrelGPUImageContext::sharedImageProcessingContext().get()) {
    TavrelGPUImageContext::sharedContextQueue()->async(std::move(release));
  } else {
    TavrelRunSynchronouslyOnVideoProcessingQueue(std::move(release));
  }
}

void TavrelGPUImageFramebuffer::activateFramebuffer() {
  drawPending();
  if (implementation_->isSamplingStale) resetSampling();
  implementation_->visibleArea.reset();
  NodeSpan::noteDrawing();
  glBindFramebuffer(GL_FRAMEBUFFER, implementation_->framebuffer);
  glViewport(0, 0, static_cast<GLsizei>(size().width), static_cast<GLsizei>(size().height));
  if (implementation_->renderTarget) implementation_->renderTarget->noteGPUWrite();
}

void TavrelGPUImageFramebuffer::lock() { ++implementation_->framebufferReferenceCount; }

void TavrelGPUImageFramebuffer::unlock() {
  // The writer's queue may unlock at the same time as this one.
  std::int64_t before = implementation_->framebufferReferenceCount;
  do {
    if (before <= implementation_->ownersLocks) {
      if (implementation_->referenceCountingDisabled) return;
      fatalAssertion(
          "Tried to overrelease a framebuffer, did you forget to call -useNextFrameForImageCapture before using "
          "-imageFromCurrentFramebuffer?");
    }
  } while (!implementation_->framebufferReferenceCount.compare_exchange_weak(before, before - 1));
  if (before > 1 || implementation_->referenceCountingDisabled) return;
  TavrelGPUImageContext::sharedFramebufferCache()->returnFramebufferToCache(shared_from_this());
}

std::int64_t TavrelGPUImageFramebuffer::framebufferReferenceCount() const {
  return implementation_->referenceCountingDisabled ? implementation_->ownersLocks
                                                    : implementation_->framebufferReferenceCount;
}

void TavrelGPUImageFramebuffer::clearAllLocks() { implementation_->framebufferReferenceCount = 0; }

void TavrelGPUImageFramebuffer::disableReferenceCounting() {
  implementation_->ownersLocks = implementation_->framebufferReferenceCount.load();
  implementation_->referenceCountingDisabled = true;
}

void TavrelGPUImageFramebuffer::enableReferenceCounting() {
  implementation_->referenceCountingDisabled = false;
  implementation_->ownersLocks = 0;
}

void TavrelGPUImageFramebuffer::lockForReading() {
  drawPending();
  if (!implementation_->renderTarget) return;
  implementation_->renderTarget->lockBaseAddress(PixelBufferLock::readWrite);
  ++implementation_->readLockCount;
}

void TavrelGPUImageFramebuffer::unlockAfterReading() {
  if (!implementation_->renderTarget) return;
  std::uint64_t before = implementation_->readLockCount;
  do {
    if (before == 0) fatalAssertion("Unbalanced call to -[TavrelGPUImageFramebuffer unlockAfterReading]");
  } while (!implementation_->readLockCount.compare_exchange_weak(before, before - 1));
  implementation_->renderTarget->unlockBaseAddress(PixelBufferLock::readWrite);
}

std::uint64_t TavrelGPUImageFramebuffer::readLockCount() const { return implementation_->readLockCount; }

void TavrelGPUImageFramebuffer::restoreRenderTarget() {
  unlockAfterReading();
  const std::lock_guard lock(implementation_->holdsMutex);
  if (!implementation_->renderTargetHolds.empty()) implementation_->renderTargetHolds.pop_back();
}

std::size_t TavrelGPUImageFramebuffer::bytesPerRow() const {
  const auto& target = implementation_->renderTarget;
  return target ? target->bytesPerRow() : static_cast<std::size_t>(size().width * 4);
}

std::uint8_t* TavrelGPUImageFramebuffer::byteBuffer() {
  if (!implementation_->renderTarget) return nullptr;
  lockForReading();
  std::uint8_t* const bytes = implementation_->renderTarget->baseAddress();
  unlockAfterReading();
  return bytes;
}

std::shared_ptr<PixelBuffer> TavrelGPUImageFramebuffer::pixelBuffer() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    drawPending();
    glFinish();
  });
  return implementation_->renderTarget;
}

std::shared_ptr<Image> TavrelGPUImageFramebuffer::newCGImageFromFramebufferContents() {
  if (textureOptions().isDeep()) return newDeepImage();
  if (textureOptions().internalFormat != GL_RGBA) {
    fatalAssertion("For conversion to a CGImage the output texture format for this filter must be GL_RGBA.");
  }
  if (textureOptions().type != GL_UNSIGNED_BYTE) {
    fatalAssertion(
        "For conversion to a CGImage the type of the output texture of this filter must be GL_UNSIGNED_BYTE.");
  }
  const auto width = static_cast<std::size_t>(size().width);
  const auto height = static_cast<std::size_t>(size().height);
  std::shared_ptr<Image> image;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    drawPending();
    if (ownsPixelBuffer()) {
      const std::size_t rowBytes = bytesPerRow();
      glFinish();
      {
        const std::lock_guard lock(implementation_->holdsMutex);
        implementation_->renderTargetHolds.push_back(implementation_->renderTarget);
      }
      lockForReading();
      auto* const self = new std::shared_ptr<TavrelGPUImageFramebuffer>(shared_from_this());
      auto provider = DataProvider::create(self, implementation_->renderTarget->baseAddress(), rowBytes * height,
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

std::shared_ptr<Image> TavrelGPUImageFramebuffer::newDeepImage() {
  const auto width = static_cast<std::size_t>(size().width);
  const auto height = static_cast<std::size_t>(size().height);
  Data pixels;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    activateFramebuffer();
    pixels = readDeepPixels(size(), textureOptions().type);
    unlock();
  });
  return Image::create(width, height, 16, 64, width * 8, kBitmapPremultipliedRGBA16,
                       DataProvider::create(std::move(pixels)));
}

void TavrelDataProviderReleaseCallback(void*, const void* data, std::size_t) { std::free(const_cast<void*>(data)); }

void TavrelDataProviderUnlockCallback(void* info, const void*, std::size_t) {
  const std::unique_ptr<std::shared_ptr<TavrelGPUImageFramebuffer>> owner(
      static_cast<std::shared_ptr<TavrelGPUImageFramebuffer>*>(info));
  const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer = *owner;
  framebuffer->restoreRenderTarget();
  framebuffer->unlock();
  TavrelGPUImageContext::sharedFramebufferCache()->removeFramebufferFromActiveImageCaptureList(framebuffer);
}

}  // namespace tavrel
