#include "GPUImage/Sources/Private/PlayerItemLoop.h"

#include <utility>

#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/MediaSettings.h"

namespace tavrel {
namespace {

/// How long before pictures are due the item should say so, in seconds.
constexpr double kAdvanceInterval = 0.1;

}  // namespace

PlayerItemLoop::~PlayerItemLoop() {
  invalidate();
  detach();
}

void PlayerItemLoop::processPlayerItem(const std::shared_ptr<PlayerItem>& item,
                                       const std::weak_ptr<PlayerItemOutputDelegate>& delegate,
                                       DisplayLink::Callback displayLinkCallback) {
  const auto link = DisplayLink::create(std::move(displayLinkCallback));
  link->addToMainRunLoop();
  link->setPaused(true);
  const PixelFormat format =
      TavrelGPUImageContext::supportsFastTextureUpload() ? PixelFormat::biPlanar420FullRange : PixelFormat::bgra32;
  const auto output = PlayerItemVideoOutput::create(
      {{kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(static_cast<std::uint32_t>(format))}});
  output->setDelegate(delegate, TavrelGPUImageContext::sharedContextQueue());
  displayLink_.set(link);
  detach();
  playerItemOutput_.set(output);
  item_.set(item);
  output->requestNotificationOfMediaDataChange(kAdvanceInterval);
  item->addOutput(output);
}

void PlayerItemLoop::setPaused(bool newValue) const {
  if (const auto link = displayLink_.get()) link->setPaused(newValue);
}

void PlayerItemLoop::invalidate() {
  if (const auto link = displayLink_.exchange(nullptr)) link->invalidate();
}

void PlayerItemLoop::detach() {
  const auto output = playerItemOutput_.exchange(nullptr);
  const auto item = item_.exchange(nullptr);
  if (!output) return;
  output->setDelegate({}, nullptr);
  item->removeOutput(output);
}

PlayerItemLoop::Picture PlayerItemLoop::nextPicture(const DisplayLink& displayLink) const {
  const auto output = playerItemOutput_.get();
  if (!output) return {};
  const MediaTime time = output->itemTimeForHostTime(displayLink.timestamp() + displayLink.duration());
  if (!output->hasNewPixelBufferForItemTime(time)) return {};
  return {output->copyPixelBufferForItemTime(time), time};
}

}  // namespace tavrel
