#include "GPUImage/TavrelGPUImageFramebufferCache.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/OnVideoProcessingQueue.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/Environment.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/UI/Application.h"

namespace tavrel {
namespace {

/// What `hashForSize` says, without the text, which would cost more than anything else that a node does by itself.
struct LookupKey {
  std::int64_t width = 0, height = 0;  // in tenths of pixels
  TavrelGPUTextureOptions options;
  bool onlyTexture = false;

  LookupKey(Size size, const TavrelGPUTextureOptions& usedOptions, bool isOnlyTexture)
      : width(std::llround(size.width * 10)),
        height(std::llround(size.height * 10)),
        options(usedOptions),
        onlyTexture(isOnlyTexture) {}
  bool operator==(const LookupKey&) const = default;
};

struct LookupKeyHash {
  std::size_t operator()(const LookupKey& key) const {
    std::size_t hash = key.onlyTexture ? 1 : 0;
    for (const auto part :
         {key.width, key.height, std::int64_t{key.options.internalFormat}, std::int64_t{key.options.format}}) {
      hash = hash * 1'000'003 ^ static_cast<std::size_t>(part);
    }
    return hash;
  }
};

/// Whether `TAVREL_DEBUG` names "textures".
bool spoilsReturnedTextures() {
  static const bool answer =
      environmentVariable("TAVREL_DEBUG").value_or("").find("textures") != std::string_view::npos;
  return answer;
}

/// Fills the texture with magenta, for whoever still reads it.
void spoil(const TavrelGPUImageFramebuffer& framebuffer) {
  TavrelGPUImageContext::useImageProcessingContext();
  GLuint scratch = 0;
  glGenFramebuffers(1, &scratch);
  glBindFramebuffer(GL_FRAMEBUFFER, scratch);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, framebuffer.texture(), 0);
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE) {
    glClearColor(1, 0, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
  }
  glDeleteFramebuffers(1, &scratch);
  if (framebuffer.renderTarget()) framebuffer.renderTarget()->noteGPUWrite();
}

}  // namespace

struct TavrelGPUImageFramebufferCache::Implementation {
  using Framebuffer = std::shared_ptr<TavrelGPUImageFramebuffer>;
  /// Of each key those that are idle, the one that was returned last behind the others.
  using FramebufferMap = std::unordered_map<LookupKey, std::vector<Framebuffer>, LookupKeyHash>;

  Framebuffer takeIdle(const LookupKey& lookupKey);
  void keepIdle(const Framebuffer& framebuffer);
  void purge();
  void traceOccupancy();

  // Guards the members below: a framebuffer that the movie writer's queue unlocks is returned there.
  std::mutex mutex;
  FramebufferMap framebufferCache;
  std::vector<Framebuffer> activeImageCaptureList;
  NotificationCenter::ObserverToken memoryWarningObserver;
  std::shared_ptr<DispatchQueue> framebufferCacheQueue =  // nothing is ever submitted to it
      DispatchQueue::create("org.tavrel.TavrelGPUImage.framebufferCacheQueue", TavrelGPUImageDefaultQueueAttribute());
};

namespace {

/// Runs `action(implementation)` on the video-processing queue, if the cache is still there then.
template <typename Implementation, typename Action>
void runLater(const std::shared_ptr<Implementation>& implementation, Action action) {
  TavrelRunAsynchronouslyOnVideoProcessingQueue(
      [weak = std::weak_ptr<Implementation>(implementation), action = std::move(action)] {
        if (const auto self = weak.lock()) action(*self);
      });
}

}  // namespace

TavrelGPUImageFramebufferCache::TavrelGPUImageFramebufferCache() : implementation_(std::make_shared<Implementation>()) {
  implementation_->memoryWarningObserver = NotificationCenter::defaultCenter().addObserver(
      kApplicationDidReceiveMemoryWarningNotification,
      [weak = std::weak_ptr<Implementation>(implementation_)](std::string_view, const void*) {
        if (const auto self = weak.lock()) runLater(self, [](Implementation& cache) { cache.purge(); });
      });
}

TavrelGPUImageFramebufferCache::~TavrelGPUImageFramebufferCache() {
  NotificationCenter::defaultCenter().removeObserver(implementation_->memoryWarningObserver);
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::fetchFramebufferForSize(
    Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture) {
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
  onVideoProcessingQueue([&] {
    framebuffer = implementation_->takeIdle({size, textureOptions, onlyTexture});
    if (framebuffer) {
      TavrelGPUImageContext::useImageProcessingContext();
      FramebufferContents::noteNewUse(*framebuffer);
    } else {
      framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(size, textureOptions, onlyTexture);
    }
  });
  framebuffer->lock();
  if (Tracer::isOn()) traceOccupancy();
  return framebuffer;
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::fetchFramebufferForSize(Size size,
                                                                                                   bool onlyTexture) {
  return fetchFramebufferForSize(size, TavrelGPUTextureOptions{}, onlyTexture);
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageFramebufferCache::Implementation::takeIdle(
    const LookupKey& lookupKey) {
  const std::lock_guard lock(mutex);
  const auto idle = framebufferCache.find(lookupKey);
  if (idle == framebufferCache.end() || idle->second.empty()) return nullptr;
  Framebuffer framebuffer = std::move(idle->second.back());
  idle->second.pop_back();
  return framebuffer;
}

void TavrelGPUImageFramebufferCache::Implementation::keepIdle(const Framebuffer& framebuffer) {
  FramebufferContents::discard(*framebuffer);
  if (spoilsReturnedTextures()) spoil(*framebuffer);
  const LookupKey lookupKey(framebuffer->size(), framebuffer->textureOptions(), framebuffer->missingFramebuffer());
  {
    const std::lock_guard lock(mutex);
    framebufferCache[lookupKey].push_back(framebuffer);
  }
  if (Tracer::isOn()) traceOccupancy();
}

void TavrelGPUImageFramebufferCache::Implementation::purge() {
  FramebufferMap idle;  // destroyed outside the lock
  {
    const std::lock_guard lock(mutex);
    idle.swap(framebufferCache);
  }
  idle.clear();
  if (Tracer::isOn()) traceOccupancy();
  const auto& shared = TavrelGPUImageContext::sharedImageProcessingContext();
  if (shared->hasContext()) shared->coreVideoTextureCache()->flush();
}

void TavrelGPUImageFramebufferCache::Implementation::traceOccupancy() {
  const std::int64_t idle = [this] {
    const std::lock_guard lock(mutex);
    std::size_t count = 0;
    for (const auto& [key, framebuffers] : framebufferCache) count += framebuffers.size();
    return static_cast<std::int64_t>(count);
  }();
  const TraceNames& names = TraceNames::shared();
  Tracer::level(names.framebuffersHeld, std::max<std::int64_t>(0, TavrelGPUImageFramebuffer::ownedCount() - idle));
  Tracer::level(names.framebuffersCached, idle);
}

void TavrelGPUImageFramebufferCache::returnFramebufferToCache(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  framebuffer->clearAllLocks();
  if (isOnVideoProcessingQueue()) return implementation_->keepIdle(framebuffer);
  runLater(implementation_,
           [framebuffer = std::move(framebuffer)](Implementation& cache) { cache.keepIdle(framebuffer); });
}

void TavrelGPUImageFramebufferCache::purgeAllUnassignedFramebuffers() {
  runLater(implementation_, [](Implementation& cache) { cache.purge(); });
}

void TavrelGPUImageFramebufferCache::traceOccupancy() { implementation_->traceOccupancy(); }

void TavrelGPUImageFramebufferCache::addFramebufferToActiveImageCaptureList(
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  runLater(implementation_, [framebuffer = std::move(framebuffer)](Implementation& cache) {
    const std::lock_guard lock(cache.mutex);
    cache.activeImageCaptureList.push_back(framebuffer);
  });
}

void TavrelGPUImageFramebufferCache::removeFramebufferFromActiveImageCaptureList(
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  runLater(implementation_, [framebuffer = std::move(framebuffer)](Implementation& cache) {
    const std::lock_guard lock(cache.mutex);
    std::erase(cache.activeImageCaptureList, framebuffer);
  });
}

std::string TavrelGPUImageFramebufferCache::hashForSize(Size size, const TavrelGPUTextureOptions& options,
                                                        bool onlyTexture) const {
  return fmt::format("{:.1f}x{:.1f}-{}:{}:{}:{}:{}:{}:{}{}", size.width, size.height, options.minFilter,
                     options.magFilter, options.wrapS, options.wrapT, options.internalFormat, options.format,
                     options.type, onlyTexture ? "-NOFB" : "");
}

}  // namespace tavrel
