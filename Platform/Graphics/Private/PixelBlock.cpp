#include "Platform/Graphics/Private/PixelBlock.h"

#include <cstdlib>
#include <utility>

#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {

std::unique_ptr<PixelBlock> PixelBlock::create(std::size_t byteCount) {
  static constexpr std::size_t kAlignment = 64;
  const std::size_t rounded = (byteCount + kAlignment - 1) / kAlignment * kAlignment;
  auto* bytes = static_cast<std::uint8_t*>(std::aligned_alloc(kAlignment, rounded));
  if (bytes == nullptr) return nullptr;
  TransferCounters& counters = TransferCounters::shared();
  ++counters.blocksAllocated;
  counters.bytesAllocated += rounded;
  return std::unique_ptr<PixelBlock>(new PixelBlock(bytes, byteCount));
}

PixelBlock::~PixelBlock() { std::free(bytes_); }

std::shared_ptr<PixelBlock> PixelBlockAllocator::acquire() {
  std::unique_ptr<PixelBlock> block;
  {
    std::lock_guard guard(mutex_);
    if (!idle_.empty()) {
      block = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (block == nullptr) block = PixelBlock::create(byteCount_);
  if (block == nullptr) return nullptr;
  return {block.release(),
          [self = shared_from_this()](PixelBlock* returned) { self->takeBack(std::unique_ptr<PixelBlock>(returned)); }};
}

void PixelBlockAllocator::takeBack(std::unique_ptr<PixelBlock> block) {
  std::lock_guard guard(mutex_);
  if (idle_.size() < kIdleBlocksKept) idle_.push_back(std::move(block));
}

void PixelBlockAllocator::flush() {
  std::vector<std::unique_ptr<PixelBlock>> dropped;
  std::lock_guard guard(mutex_);
  dropped.swap(idle_);
}

}  // namespace tavrel
