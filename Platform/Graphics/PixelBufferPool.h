#pragma once

#include <cstddef>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// A pool of pixel buffers of one size and format. When the last shared_ptr to a buffer is released, its memory and
/// textures return to the pool for reuse. Buffers that outlive the pool are freed. Any thread.
class TAVREL_API PixelBufferPool {
 public:
  /// Fails as `PixelBuffer::create` does.
  static Expected<std::shared_ptr<PixelBufferPool>> create(std::size_t width, std::size_t height, PixelFormat format);

  PixelBufferPool(const PixelBufferPool&) = delete;
  PixelBufferPool& operator=(const PixelBufferPool&) = delete;
  ~PixelBufferPool();

  /// The buffer returned last, or a new one, without attachments and with undefined contents.
  Expected<std::shared_ptr<PixelBuffer>> createPixelBuffer();
  /// Frees idle buffers and memory.
  void flush();

  std::size_t width() const;
  std::size_t height() const;
  PixelFormat pixelFormat() const;
  /// Number of idle buffers.
  std::size_t idleCount() const;

 private:
  class Core;

  explicit PixelBufferPool(std::shared_ptr<Core> core);

  std::shared_ptr<Core> core_;
};

}  // namespace tavrel
