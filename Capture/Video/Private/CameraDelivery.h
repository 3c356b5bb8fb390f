#pragma once

#include <functional>
#include <utility>

#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "GPUImage/TavrelGPUImageInput.h"

namespace tavrel {

/// The end of a camera's chain that hands frames to somebody outside of the graph.
class CameraDelivery : public TavrelGPUImageInput {
 public:
  using Handler = std::function<void(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time)>;

  /// `handler` is called on the video-processing queue, with a framebuffer that is locked during the call.
  explicit CameraDelivery(Handler handler) : handler_(std::move(handler)) {}

  void newFrameReadyAtTime(MediaTime frameTime, Index) override {
    const TavrelGPUImageFramebufferLease frame = std::move(frame_);
    if (frame) handler_(frame.get(), frameTime);
  }
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) override {
    frame_ = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
  }

 private:
  const Handler handler_;
  TavrelGPUImageFramebufferLease frame_;
};

}  // namespace tavrel
