#pragma once

#include <functional>
#include <memory>

#include "GPUImage/Private/SharedValue.h"
#include "Platform/Media/DisplayLink.h"
#include "Platform/Media/PlayerItem.h"

namespace tavrel {

/// Takes from a player item, on the main run loop and at the display's rate, the pictures that are due.
///
///     idle ──processPlayerItem──▶ paused ⇄ running ──invalidate──▶ idle
///
/// Any thread.
class PlayerItemLoop {
 public:
  PlayerItemLoop() = default;
  PlayerItemLoop(const PlayerItemLoop&) = delete;
  PlayerItemLoop& operator=(const PlayerItemLoop&) = delete;
  ~PlayerItemLoop();

  /// `delegate` hears on the video-processing queue when there are pictures; `displayLinkCallback` runs at the
  /// display's rate while running, and asks for `nextPicture`.
  void processPlayerItem(const std::shared_ptr<PlayerItem>& item,
                         const std::weak_ptr<PlayerItemOutputDelegate>& delegate,
                         DisplayLink::Callback displayLinkCallback);
  void setPaused(bool newValue) const;
  void invalidate();

  struct Picture {
    std::shared_ptr<PixelBuffer> pixelBuffer;
    MediaTime time;
  };
  /// What is to be shown at the display's next refresh; without a pixel buffer where that is nothing new.
  Picture nextPicture(const DisplayLink& displayLink) const;

 private:
  void detach();

  SharedValue<std::shared_ptr<DisplayLink>> displayLink_;
  SharedValue<std::shared_ptr<PlayerItemVideoOutput>> playerItemOutput_;
  SharedValue<std::shared_ptr<PlayerItem>> item_;
};

}  // namespace tavrel
