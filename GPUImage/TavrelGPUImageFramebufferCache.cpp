#include "GPUImage/TavrelGPUImageFramebufferCache.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/UI/Application.h"

namespace tavrel {
namespace {

std::string slotKey(const std::string& lookupKey, Index slot) {
  return fmt::format("{}-{}", lookupKey, slot);
}

}  // namespace

TavrelGPUImageFramebufferCache::TavrelGPUImageFramebufferCache()
    : framebufferCacheQueue(DispatchQueue::create("org.tavrel.TavrelGPUImage.framebufferCacheQueue",
                                                  TavrelGPUImageDefaultQueueAttribute())) {
  memoryWarningObserver = NotificationCenter::defaultCenter().addObserver(
      kApplicationDidReceiveMemoryWarningNotification,
      [this](std::string_view, const void*) { purgeAllUnassignedFramebuffers(); });
}

TavrelGPUImageFramebufferCache::~TavrelGPUImageFramebufferCache() {
  NotificationCenter::defaultCenter().removeObserver(memoryWarningObserver);
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::fetchFramebufferForSize(
    Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture) {
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    framebuffer = takeIdleFramebuffer(hashForSize(size, textureOptions, onlyTexture));
    if (!framebuffer) framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(size, textureOptions, onlyTexture);
  });
  framebuffer->lock();
  if (Tracer::isOn()) traceOccupancy();
  return framebuffer;
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::fetchFramebufferForSize(Size size,
                                                                                                   bool onlyTexture) {
  return fetchFramebufferForSize(size, TavrelGPUTextureOptions{}, onlyTexture);
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::takeIdleFramebuffer(
    const std::string& lookupKey) {
  const std::lock_guard lock(mutex_);
  const auto count = framebufferTypeCounts.find(lookupKey);
  if (count == framebufferTypeCounts.end() || count->second < 1) return nullptr;
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
  Index slot = count->second - 1;
  for (; !framebuffer && slot >= 0; --slot) {
    if (auto idle = framebufferCache.extract(slotKey(lookupKey, slot))) framebuffer = std::move(idle.mapped());
  }
  count->second = slot + 1;
  return framebuffer;
}

void TavrelGPUImageFramebufferCache::returnFramebufferToCache(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  framebuffer->clearAllLocks();
  TavrelRunAsynchronouslyOnVideoProcessingQueue([this, framebuffer = std::move(framebuffer)] {
    const std::string lookupKey =
        hashForSize(framebuffer->size(), framebuffer->textureOptions(), framebuffer->missingFramebuffer());
    {
      const std::lock_guard lock(mutex_);
      Index& count = framebufferTypeCounts[lookupKey];
      framebufferCache[slotKey(lookupKey, count)] = framebuffer;
      ++count;
    }
    if (Tracer::isOn()) traceOccupancy();
  });
}

void TavrelGPUImageFramebufferCache::purgeAllUnassignedFramebuffers() {
  TavrelRunAsynchronouslyOnVideoProcessingQueue([this] {
    FramebufferMap idle;  // destroyed outside the lock
    {
      const std::lock_guard lock(mutex_);
      idle.swap(framebufferCache);
      framebufferTypeCounts.clear();
    }
    idle.clear();
    if (Tracer::isOn()) traceOccupancy();
    const auto& shared = TavrelGPUImageContext::sharedImageProcessingContext();
    if (shared->hasContext()) shared->coreVideoTextureCache()->flush();
  });
}

void TavrelGPUImageFramebufferCache::traceOccupancy() {
  const std::int64_t idle = [this] {
    const std::lock_guard lock(mutex_);
    return static_cast<std::int64_t>(framebufferCache.size());
  }();
  const TraceNames& names = TraceNames::shared();
  Tracer::level(names.framebuffersHeld, std::max<std::int64_t>(0, TavrelGPUImageFramebuffer::ownedCount() - idle));
  Tracer::level(names.framebuffersCached, idle);
}

void TavrelGPUImageFramebufferCache::addFramebufferToActiveImageCaptureList(
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  TavrelRunAsynchronouslyOnVideoProcessingQueue([this, framebuffer = std::move(framebuffer)] {
    const std::lock_guard lock(mutex_);
    activeImageCaptureList.push_back(framebuffer);
  });
}

void TavrelGPUImageFramebufferCache::removeFramebufferFromActiveImageCaptureList(
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  TavrelRunAsynchronouslyOnVideoProcessingQueue([this, framebuffer = std::move(framebuffer)] {
    const std::lock_guard lock(mutex_);
    std::erase(activeImageCaptureList, framebuffer);
  });
}

std::string TavrelGPUImageFramebufferCache::hashForSize(Size size, const TavrelGPUTextureOptions& options,
                                                        bool onlyTexture) const {
  return fmt::format("{:.1f}x{:.1f}-{}:{}:{}:{}:{}:{}:{}{}", size.width, size.height, options.minFilter,
                     options.magFilter, options.wrapS, options.wrapT, options.internalFormat, options.format,
                     options.type, onlyTexture ? "-NOFB" : "");
}

}  // namespace tavrel
