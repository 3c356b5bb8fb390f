#pragma once

#include <memory>
#include <vector>

#include "Platform/Graphics/Private/PixelBufferBacking.h"

namespace tavrel {

/// A pixel buffer whose bytes lie in ordinary memory and are copied to and from its textures by GL. Works everywhere.
class StagedBacking : public PixelBufferBacking {
 public:
  StagedBacking(const PixelLayout& layout, std::shared_ptr<PixelBlockAllocator> allocator);

 protected:
  bool sharesMemory() const override { return false; }
  Expected<std::shared_ptr<GLTexture>> makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                   std::size_t plane) override;
  void uploadTo(GLTexture& texture, std::size_t plane) override;
  bool downloadFrom(GLTexture& texture, NativeContext& context) override;
  bool ensureBytes() override;
  std::uint8_t* currentBytes() override { return block_ != nullptr ? block_->bytes() : nullptr; }
  bool prepareWriting() override;
  void finishAccess() override { retired_.clear(); }
  std::shared_ptr<PixelBlock> snapshotBlock() override;
  /// Bytes that no snapshot reads, with arbitrary contents. Of those before nobody has the address.
  bool takeFreshBlock();

 private:
  /// Blocks that an earlier lock may still show, beyond which the oldest is reused.
  static constexpr std::size_t kRetiredKept = 4;

  std::shared_ptr<PixelBlock> copyOfBlock();
  void replaceBlock(std::shared_ptr<PixelBlock> block);

  std::shared_ptr<PixelBlockAllocator> allocator_;
  std::shared_ptr<PixelBlock> block_;
  std::vector<std::shared_ptr<PixelBlock>> retired_;
};

}  // namespace tavrel
