#pragma once

#include <gbm.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// A linear 'BGRA' picture in memory that GPU and CPU share: a GBM buffer object, mapped through its dma-buf for as
/// long as it lives. Not thread-safe.
class DmaBuf {
 public:
  /// nullptr when the device has no such buffer or it cannot be mapped.
  static std::unique_ptr<DmaBuf> create(gbm_device* device, std::size_t width, std::size_t height);
  DmaBuf(const DmaBuf&) = delete;
  DmaBuf& operator=(const DmaBuf&) = delete;
  ~DmaBuf();

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  std::size_t bytesPerRow() const { return bytesPerRow_; }
  std::size_t byteCount() const { return bytesPerRow_ * height_; }
  int fileDescriptor() const { return fileDescriptor_; }
  std::uint8_t* bytes() const { return bytes_; }

  /// The CPU's accesses lie between these two, which keep its caches and the GPU in step. Reading waits for what draws
  /// into the buffer, writing also for what reads it. A second `beginAccess` begins anew: it publishes what was written
  /// and shows what the GPU wrote.
  void beginAccess(PixelBufferLock purpose);
  void endAccess();
  std::optional<PixelBufferLock> access() const { return access_; }

 private:
  explicit DmaBuf(gbm_bo* object) : object_(object) {}
  bool map();
  void synchronise(std::uint64_t step) const;

  gbm_bo* object_;
  std::size_t width_ = 0;
  std::size_t height_ = 0;
  std::size_t bytesPerRow_ = 0;
  int fileDescriptor_ = -1;
  std::uint8_t* bytes_ = nullptr;
  std::optional<PixelBufferLock> access_;
};

}  // namespace tavrel
