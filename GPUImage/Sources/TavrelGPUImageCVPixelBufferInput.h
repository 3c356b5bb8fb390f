#pragma once

#include <functional>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

/// Feeds BGRA pixel buffers into the graph, one at a time.
///
/// A buffer is in flight from its acceptance until its frame has been delivered on the video-processing queue. Any
/// thread.
class TAVREL_API TavrelGPUImageCVPixelBufferInput : public TavrelGPUImageOutput {
 public:
  TavrelGPUImageCVPixelBufferInput();
  ~TavrelGPUImageCVPixelBufferInput() override;

  /// Delivers the buffer without a time; see below.
  bool processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, bool wait);
  /// Delivers the buffer to every enabled target. If another buffer is in flight, waits for it with `wait`, else
  /// returns false. The buffer must not be written to until delivered. False, with a line on the console, without a
  /// buffer. Any pixel format but `PixelFormat::bgra32` stops the program. `completion` is never called.
  bool processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime, bool wait,
                            const std::function<void()>& completion = {});

  /// The texture of the last buffer delivered, or nullptr. On the video-processing queue.
  const std::shared_ptr<TextureCacheTexture>& textureRef() const;
  /// Has a count of 1, or of 0 while a buffer is in flight.
  const std::shared_ptr<DispatchSemaphore>& frameRenderingSemaphore() const;

 private:
  struct Implementation;

  void deliver(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
