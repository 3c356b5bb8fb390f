#include "Platform/Graphics/Private/StagedBacking.h"

#include <cstring>
#include <utility>

#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

GLPixels pixelsOf(const PixelPlane& plane, PixelBlock& block) {
  return {block.bytes() + plane.offset, plane.bytesPerRow, plane.bytesPerSample};
}

}  // namespace

StagedBacking::StagedBacking(const PixelLayout& layout, std::shared_ptr<PixelBlockAllocator> allocator)
    : PixelBufferBacking(layout), allocator_(std::move(allocator)) {}

Expected<std::shared_ptr<GLTexture>> StagedBacking::makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                                std::size_t) {
  return sharegroup.acquireTexture(shape);
}

void StagedBacking::uploadTo(GLTexture& texture, std::size_t plane) {
  if (block_ != nullptr) uploadPixels(texture, pixelsOf(layout().planes[plane], *block_));
}

bool StagedBacking::downloadFrom(GLTexture& texture, NativeContext& context) {
  const bool inPlace = block_ != nullptr && !block_->hasReaders() && !isLocked();
  std::shared_ptr<PixelBlock> target = inPlace ? block_ : allocator_->acquire();
  if (target == nullptr) return false;
  if (!downloadPixels(texture, context.scratchFramebuffer(), pixelsOf(layout().planes[0], *target))) return false;
  if (!inPlace) replaceBlock(std::move(target));
  return true;
}

bool StagedBacking::ensureBytes() {
  if (block_ != nullptr) return true;
  block_ = allocator_->acquire();
  if (block_ == nullptr) return false;
  std::memset(block_->bytes(), 0, block_->byteCount());
  return true;
}

bool StagedBacking::takeFreshBlock() {
  if (block_ != nullptr && !block_->hasReaders()) return true;
  block_ = allocator_->acquire();
  return block_ != nullptr;
}

bool StagedBacking::prepareWriting() {
  if (!ensureBytes()) return false;
  if (!block_->hasReaders()) return true;
  std::shared_ptr<PixelBlock> next = hasPicture() ? copyOfBlock() : allocator_->acquire();
  if (next == nullptr) return false;
  replaceBlock(std::move(next));
  return true;
}

std::shared_ptr<PixelBlock> StagedBacking::snapshotBlock() {
  // Whoever holds a write lock may go on writing.
  return isLockedForWriting() ? copyOfBlock() : block_;
}

std::shared_ptr<PixelBlock> StagedBacking::copyOfBlock() {
  std::shared_ptr<PixelBlock> copy = allocator_->acquire();
  if (copy == nullptr) return nullptr;
  std::memcpy(copy->bytes(), block_->bytes(), block_->byteCount());
  TransferCounters::shared().bytesCopied += block_->byteCount();
  return copy;
}

void StagedBacking::replaceBlock(std::shared_ptr<PixelBlock> block) {
  if (isLocked() && block_ != nullptr) {
    if (retired_.size() == kRetiredKept) retired_.erase(retired_.begin());
    retired_.push_back(std::move(block_));
  }
  block_ = std::move(block);
}

}  // namespace tavrel
