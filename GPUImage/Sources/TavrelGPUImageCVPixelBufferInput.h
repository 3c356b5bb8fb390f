#pragma once

#include <functional>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

/// Pushes a caller's 32-bit BGRA pixel buffers into the graph, one at a time.
///
/// States: idle → in flight, from the acceptance of a buffer until its frame was delivered on the video-processing
/// queue → idle. Any thread.
class TAVREL_API TavrelGPUImageCVPixelBufferInput : public TavrelGPUImageOutput {
 public:
  TavrelGPUImageCVPixelBufferInput();
  ~TavrelGPUImageCVPixelBufferInput() override;

  /// Delivers the buffer without a time; see below.
  bool processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, bool wait);
  /// Delivers the buffer to every enabled target. While another one is in flight: with `wait` the call waits until that
  /// was delivered, without it the answer is false and the buffer is left alone. The buffer must not be written to
  /// until it was delivered. Another pixel format than `PixelFormat::bgra32` stops the program. `completion` is never
  /// called.
  bool processCVPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime, bool wait,
                            const std::function<void()>& completion = {});

  /// The texture of the last buffer delivered, or none. On the video-processing queue.
  const std::shared_ptr<TextureCacheTexture>& textureRef() const;
  /// Has one unit while idle and none while a buffer is in flight.
  const std::shared_ptr<DispatchSemaphore>& frameRenderingSemaphore() const;

 private:
  struct Implementation;

  void deliver(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
