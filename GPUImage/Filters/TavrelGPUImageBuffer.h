#pragma once

#include <deque>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"

namespace tavrel {

/// Delays the stream: once it holds `bufferSize` frames, each new frame lets the oldest one go on, with the new one's
/// time. While it fills, frames pass at once. Nothing is drawn; the targets turn the picture by the buffer's input
/// rotation.
class TAVREL_API TavrelGPUImageBuffer : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageBuffer();
  ~TavrelGPUImageBuffer() override;

  std::size_t bufferSize() const { return bufferSize_; }
  /// A smaller size gives up the newest frames; 0 is ignored. Video-processing queue, or before the first frame.
  void setBufferSize(std::size_t newValue);

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 protected:
  void renderToTexture(const GLfloat*, const GLfloat*) override {}

 private:
  std::size_t bufferSize_ = 1;
  std::deque<TavrelGPUImageFramebufferLease> bufferedFramebuffers;  // oldest first
};

}  // namespace tavrel
