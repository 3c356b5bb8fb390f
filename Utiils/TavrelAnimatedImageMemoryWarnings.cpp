#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/UI/Application.h"
#include "Utiils/Private/TavrelAnimatedImageShared.h"

namespace tavrel {
namespace {

using Level = TavrelAnimatedImageLogLevel;

constexpr std::size_t kFrameCacheSizeNoLimit = 0;
constexpr std::size_t kFrameCacheSizeLowMemory = 1;
constexpr std::size_t kFrameCacheSizeGrowAfterMemoryWarning = 2;

/// An image that had this many warnings never grows again.
constexpr std::size_t kGrowAttemptsMax = 3;
constexpr std::chrono::seconds kGrowDelay(2);
constexpr std::chrono::seconds kResetDelay(3);

}  // namespace

TavrelAnimatedImage::Shared& TavrelAnimatedImage::shared() {
  static auto* const shared = new Shared;
  return *shared;
}

void TavrelAnimatedImage::Shared::add(const std::shared_ptr<TavrelAnimatedImage>& image) {
  std::call_once(observesMemoryWarnings, [] {
    NotificationCenter::defaultCenter().addObserver(
        kApplicationDidReceiveMemoryWarningNotification,
        [](std::string_view, const void*) { didReceiveMemoryWarningNotification(); });
  });
  const std::lock_guard lock(mutex);
  std::erase_if(allAnimatedImagesWeak, [](const auto& weak) { return weak.expired(); });
  allAnimatedImagesWeak.push_back(image);
}

std::vector<std::shared_ptr<TavrelAnimatedImage>> TavrelAnimatedImage::Shared::liveImages() {
  std::vector<std::shared_ptr<TavrelAnimatedImage>> images;
  const std::lock_guard lock(mutex);
  for (const auto& weak : allAnimatedImagesWeak) {
    if (auto image = weak.lock()) images.push_back(std::move(image));
  }
  return images;
}

void TavrelAnimatedImage::setDelayedCallScheduler(DelayedCallScheduler scheduler) {
  const std::lock_guard lock(shared().mutex);
  shared().scheduler = std::move(scheduler);
}

void TavrelAnimatedImage::didReceiveMemoryWarningNotification() {
  if (!RunLoop::isMainThread()) fatalAssertion("Received memory warning on non-main thread");
  for (const auto& image : shared().liveImages()) image->didReceiveMemoryWarning();
}

void TavrelAnimatedImage::didReceiveMemoryWarning() {
  ++implementation_->memoryWarningCount;
  ++implementation_->delayedCall;  // cancels a pending one
  logStringFromBlock(
      [&] {
        return fmt::format(
            "Attempt setting frame cache size max to {} (previous was {}) after memory warning #{} for animated image: "
            "{}",
            kFrameCacheSizeLowMemory, implementation_->frameCacheSizeMaxInternal, implementation_->memoryWarningCount,
            description());
      },
      Level::debug);
  setFrameCacheSizeMaxInternal(kFrameCacheSizeLowMemory);
  if (implementation_->memoryWarningCount - 1 >= kGrowAttemptsMax) return;
  performAfterDelay(kGrowDelay, [](TavrelAnimatedImage& image) {
    image.growFrameCacheSizeAfterMemoryWarning(kFrameCacheSizeGrowAfterMemoryWarning);
  });
}

void TavrelAnimatedImage::growFrameCacheSizeAfterMemoryWarning(std::size_t frameCacheSize) {
  setFrameCacheSizeMaxInternal(frameCacheSize);
  logStringFromBlock(
      [&] {
        return fmt::format("Grew frame cache size max to {} after memory warning for animated image: {}",
                           frameCacheSize, description());
      },
      Level::debug);
  performAfterDelay(kResetDelay, [](TavrelAnimatedImage& image) { image.resetFrameCacheSizeMaxInternal(); });
}

void TavrelAnimatedImage::resetFrameCacheSizeMaxInternal() {
  setFrameCacheSizeMaxInternal(kFrameCacheSizeNoLimit);
  logStringFromBlock(
      [&] {
        return fmt::format("Reset frame cache size max (current frame cache size: {}) for animated image: {}",
                           frameCacheSizeCurrent(), description());
      },
      Level::debug);
}

void TavrelAnimatedImage::performAfterDelay(std::chrono::nanoseconds delay,
                                            std::function<void(TavrelAnimatedImage&)> call) {
  const std::uint64_t number = ++implementation_->delayedCall;
  auto later = [proxy = implementation_->weakProxy, number, call = std::move(call)] {
    proxy.forward(&TavrelAnimatedImage::runDelayedCall, number, call);
  };
  DelayedCallScheduler scheduler;
  {
    const std::lock_guard lock(shared().mutex);
    scheduler = shared().scheduler;
  }
  if (scheduler) {
    scheduler(delay, std::move(later));
  } else {
    DispatchQueue::main()->asyncAfter(delay, std::move(later));
  }
}

void TavrelAnimatedImage::runDelayedCall(std::uint64_t number, const std::function<void(TavrelAnimatedImage&)>& call) {
  if (number == implementation_->delayedCall) call(*this);
}

}  // namespace tavrel
