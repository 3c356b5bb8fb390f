#pragma once

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Delays the stream: once it holds `bufferSize` frames, each new frame releases the oldest one, with the new frame's
/// time. While it fills, frames pass at once. Draws nothing; the targets apply the buffer's input rotation.
class TAVREL_API TavrelGPUImageBuffer : public TavrelGPUImageFilter {
 public:
  TavrelGPUImageBuffer();
  ~TavrelGPUImageBuffer() override;

  std::size_t bufferSize() const;
  /// A smaller size discards the newest frames; 0 is ignored.
  void setBufferSize(std::size_t newValue);

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;

 protected:
  void renderToTextureWithVertices(const GLfloat*, const GLfloat*) override {}

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
