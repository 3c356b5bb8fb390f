#include "Platform/Graphics/PixelBufferSnapshot.h"

#include <utility>

#include "Platform/Graphics/Private/PixelBlock.h"

namespace tavrel {

PixelBufferSnapshot::PixelBufferSnapshot(const PixelLayout& layout, std::shared_ptr<PixelBlock> block,
                                         Attachments attachments)
    : layout_(layout), block_(std::move(block)), attachments_(std::move(attachments)) {}

PixelBufferSnapshot::~PixelBufferSnapshot() { block_->removeReader(); }

const std::uint8_t* PixelBufferSnapshot::bytes() const { return block_->bytes(); }

std::size_t PixelBufferSnapshot::bytesPerRowOfPlane(std::size_t plane) const {
  return plane < layout_.planeCount ? layout_.planes[plane].bytesPerRow : 0;
}

const std::uint8_t* PixelBufferSnapshot::bytesOfPlane(std::size_t plane) const {
  return plane < layout_.planeCount ? block_->bytes() + layout_.planes[plane].offset : nullptr;
}

std::optional<std::string> PixelBufferSnapshot::attachment(std::string_view key) const {
  auto found = attachments_.find(key);
  if (found == attachments_.end()) return std::nullopt;
  return found->second;
}

}  // namespace tavrel
