#pragma once

#include <cstddef>
#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// Pixel buffers of one size and format that come back by themselves: when the last shared_ptr to one goes, its memory
/// and its textures stay with the pool for the next one. Buffers may outlive the pool and are then simply freed. Any
/// thread.
class TAVREL_API PixelBufferPool {
 public:
  /// Fails as `PixelBuffer::create` does.
  static Expected<std::shared_ptr<PixelBufferPool>> create(std::size_t width, std::size_t height, PixelFormat format);

  PixelBufferPool(const PixelBufferPool&) = delete;
  PixelBufferPool& operator=(const PixelBufferPool&) = delete;
  ~PixelBufferPool();

  /// A buffer without attachments whose picture is undefined: the one that came back last, or a new one.
  Expected<std::shared_ptr<PixelBuffer>> createPixelBuffer();
  /// Frees the idle buffers and idle memory.
  void flush();

  std::size_t width() const;
  std::size_t height() const;
  PixelFormat pixelFormat() const;
  /// Buffers that wait for use.
  std::size_t idleCount() const;

 private:
  class Core;

  explicit PixelBufferPool(std::shared_ptr<Core> core);

  std::shared_ptr<Core> core_;
};

}  // namespace tavrel
