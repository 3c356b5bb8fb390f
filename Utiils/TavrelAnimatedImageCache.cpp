#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {
namespace {

using Level = TavrelAnimatedImageLogLevel;
using Milliseconds = std::chrono::duration<double, std::milli>;

}  // namespace

std::size_t TavrelAnimatedImage::frameCacheSizeCurrent() const {
  std::size_t size = implementation_->frameCacheSizeOptimal;
  for (const std::size_t limit : {implementation_->frameCacheSizeMax, implementation_->frameCacheSizeMaxInternal}) {
    if (limit > 0) size = std::min(size, limit);
  }
  return size;
}

void TavrelAnimatedImage::setFrameCacheSizeMax(std::size_t frameCacheSizeMax) {
  if (frameCacheSizeMax == implementation_->frameCacheSizeMax) return;
  const bool willShrink = frameCacheSizeMax < frameCacheSizeCurrent();
  implementation_->frameCacheSizeMax = frameCacheSizeMax;
  if (willShrink) purgeFrameCacheIfNeeded();
}

void TavrelAnimatedImage::setFrameCacheSizeMaxInternal(std::size_t frameCacheSizeMaxInternal) {
  if (frameCacheSizeMaxInternal == implementation_->frameCacheSizeMaxInternal) return;
  const bool willShrink = frameCacheSizeMaxInternal < frameCacheSizeCurrent();
  implementation_->frameCacheSizeMaxInternal = frameCacheSizeMaxInternal;
  if (willShrink) purgeFrameCacheIfNeeded();
}

std::set<std::size_t> TavrelAnimatedImage::cachedFrameIndexes() const {
  std::set<std::size_t> indexes;
  for (const auto& [index, frame] : implementation_->cachedFramesForIndexes) indexes.insert(indexes.end(), index);
  return indexes;
}

std::set<std::size_t> TavrelAnimatedImage::frameIndexesToCache() const {
  const std::size_t cacheSize = frameCacheSizeCurrent();
  if (cacheSize == implementation_->frameCount) return implementation_->allFramesIndexSet;
  std::set<std::size_t> indexes;
  const std::size_t firstLength =
      std::min(cacheSize, implementation_->frameCount - implementation_->requestedFrameIndex);
  for (std::size_t i = 0; i < firstLength; ++i) indexes.insert(implementation_->requestedFrameIndex + i);
  for (std::size_t i = 0; i < cacheSize - firstLength; ++i) indexes.insert(i);
  if (indexes.size() != cacheSize) {
    logStringFromBlock([] { return std::string("Number of frames to cache doesn't equal expected cache size."); },
                       Level::warning);
  }
  indexes.insert(implementation_->posterImageFrameIndex);
  return indexes;
}

std::shared_ptr<Image> TavrelAnimatedImage::imageLazilyCachedAtIndex(std::size_t index) {
  if (index >= implementation_->frameCount) {
    logStringFromBlock(
        [&] {
          return fmt::format("Skipping requested frame {} beyond bounds (total frame count: {}) for animated image: {}",
                             index, implementation_->frameCount, description());
        },
        Level::warning);
    return nullptr;
  }
  implementation_->requestedFrameIndex = index;
  if (const auto delegate = implementation_->debug_delegate.lock()) delegate->didRequestCachedFrame(*this, index);
  if (implementation_->cachedFramesForIndexes.size() < implementation_->frameCount) {
    std::set<std::size_t> missing = frameIndexesToCache();
    std::erase_if(missing, [&](std::size_t wanted) {
      // A frame that was dropped at first would fail each time.
      return implementation_->cachedFramesForIndexes.contains(wanted) ||
             implementation_->requestedFrameIndexes.contains(wanted) ||
             wanted == implementation_->posterImageFrameIndex ||
             !implementation_->delayTimesForIndexes.contains(wanted);
    });
    if (!missing.empty()) addFrameIndexesToCache(missing);
  }
  const auto cached = implementation_->cachedFramesForIndexes.find(index);
  std::shared_ptr<Image> frame = cached == implementation_->cachedFramesForIndexes.end() ? nullptr : cached->second;
  purgeFrameCacheIfNeeded();
  return frame;
}

void TavrelAnimatedImage::addFrameIndexesToCache(const std::set<std::size_t>& frameIndexesToAddToCache) {
  // What is shown next comes first.
  const auto split = frameIndexesToAddToCache.lower_bound(implementation_->requestedFrameIndex);
  std::vector<std::size_t> order(split, frameIndexesToAddToCache.end());
  order.insert(order.end(), frameIndexesToAddToCache.begin(), split);
  if (order.size() != frameIndexesToAddToCache.size()) {
    logStringFromBlock([] { return std::string("Two-part frame cache range doesn't equal full range."); },
                       Level::warning);
  }
  implementation_->requestedFrameIndexes.insert(order.begin(), order.end());
  implementation_->serialQueue->async([proxy = implementation_->weakProxy, order = std::move(order)] {
    for (const std::size_t index : order) {
      const std::shared_ptr<TavrelAnimatedImage> image = proxy.forwardingTarget();
      if (!image) return;
      image->decodeAhead(index);
    }
  });
}

void TavrelAnimatedImage::decodeAhead(std::size_t index) {
  std::shared_ptr<Image> frame = decodedFrame(index);
  if (frame && implementation_->predrawingEnabled) {
    const auto start = std::chrono::steady_clock::now();
    frame = predrawnImageFromImage(frame);
    const Milliseconds duration = std::chrono::steady_clock::now() - start;
    logStringFromBlock(
        [&] {
          return fmt::format("Predrew frame {} in {:f} ms for animated image: {}", index, duration.count(),
                             description());
        },
        Level::debug);
  }
  DispatchQueue::main()->async([proxy = implementation_->weakProxy, index, frame = std::move(frame)]() mutable {
    proxy.forward(&TavrelAnimatedImage::storeFrame, index, std::move(frame));
  });
}

void TavrelAnimatedImage::storeFrame(std::size_t index, std::shared_ptr<Image> frame) {
  implementation_->requestedFrameIndexes.erase(index);
  if (!frame) return;
  implementation_->cachedFramesForIndexes[index] = std::move(frame);
  // The cache may have shrunk, or the player gone elsewhere, while this one was decoded.
  purgeFrameCacheIfNeeded();
}

void TavrelAnimatedImage::purgeFrameCacheIfNeeded() {
  if (implementation_->cachedFramesForIndexes.size() <= frameCacheSizeCurrent()) return;
  const std::set<std::size_t> wanted = frameIndexesToCache();
  std::set<std::size_t> unwanted = cachedFrameIndexes();
  std::erase_if(unwanted, [&](std::size_t index) { return wanted.contains(index); });
  while (!unwanted.empty()) {
    const std::size_t first = *unwanted.begin();
    std::size_t last = first;
    while (unwanted.contains(last + 1)) ++last;
    removeFromCache(first, last);
    unwanted.erase(unwanted.begin(), unwanted.upper_bound(last));
  }
}

void TavrelAnimatedImage::removeFromCache(std::size_t first, std::size_t last) {
  implementation_->cachedFramesForIndexes.erase(implementation_->cachedFramesForIndexes.lower_bound(first),
                                                implementation_->cachedFramesForIndexes.upper_bound(last));
  if (implementation_->debug_delegate.expired()) return;
  DispatchQueue::main()->async([proxy = implementation_->weakProxy, weakDelegate = implementation_->debug_delegate] {
    const auto image = proxy.forwardingTarget();
    const auto delegate = weakDelegate.lock();
    if (image && delegate) delegate->didUpdateCachedFrames(*image, image->cachedFrameIndexes());
  });
}

}  // namespace tavrel
