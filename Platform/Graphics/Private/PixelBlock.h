#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace tavrel {

/// A piece of pixel memory, aligned to 64 bytes, which one pixel buffer writes and snapshots read.
class PixelBlock {
 public:
  /// nullptr when no memory is left.
  static std::unique_ptr<PixelBlock> create(std::size_t byteCount);
  PixelBlock(const PixelBlock&) = delete;
  PixelBlock& operator=(const PixelBlock&) = delete;
  ~PixelBlock();

  std::uint8_t* bytes() { return bytes_; }
  std::size_t byteCount() const { return byteCount_; }

  /// Readers are added under the lock of the buffer that owns the block; they leave whenever they like. What a reader
  /// did before it left has happened before `hasReaders` says that it is gone.
  void addReader() { readers_.fetch_add(1, std::memory_order_relaxed); }
  void removeReader() { readers_.fetch_sub(1, std::memory_order_release); }
  bool hasReaders() const { return readers_.load(std::memory_order_acquire) > 0; }

 private:
  PixelBlock(std::uint8_t* bytes, std::size_t byteCount) : bytes_(bytes), byteCount_(byteCount) {}

  std::uint8_t* bytes_;
  std::size_t byteCount_;
  std::atomic<int> readers_ = 0;
};

/// Hands out blocks of one size and takes them back for reuse when the last holder lets go. Any thread.
class PixelBlockAllocator : public std::enable_shared_from_this<PixelBlockAllocator> {
 public:
  explicit PixelBlockAllocator(std::size_t byteCount) : byteCount_(byteCount) {}

  /// A block with arbitrary contents; nullptr when no memory is left.
  std::shared_ptr<PixelBlock> acquire();
  /// Frees the idle blocks.
  void flush();

 private:
  /// Enough for an encoder that gives back all the frames it held at once.
  static constexpr std::size_t kIdleBlocksKept = 8;

  void takeBack(std::unique_ptr<PixelBlock> block);

  const std::size_t byteCount_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<PixelBlock>> idle_;
};

}  // namespace tavrel
