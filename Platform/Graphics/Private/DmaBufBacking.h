#pragma once

#include <memory>

#include "Platform/Graphics/Private/DmaBufDevice.h"
#include "Platform/Graphics/Private/PixelBufferBacking.h"

namespace tavrel {

/// A pixel buffer whose bytes and textures are the same memory. Nothing is copied but snapshots, which have to stay as
/// they are while the GPU goes on drawing.
class DmaBufBacking final : public PixelBufferBacking {
 public:
  /// nullptr when the device has no memory for such a picture.
  static std::unique_ptr<DmaBufBacking> create(const DmaBufDevice& device, const PixelLayout& layout);

 private:
  DmaBufBacking(const DmaBufDevice& device, std::unique_ptr<DmaBuf> buffer, const PixelLayout& layout);

  bool sharesMemory() const override { return true; }
  Expected<std::shared_ptr<GLTexture>> makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                   std::size_t plane) override;
  void uploadTo(GLTexture& texture, std::size_t plane) override;
  bool downloadFrom(GLTexture& texture, NativeContext& context) override;
  bool ensureBytes() override;
  std::uint8_t* currentBytes() override { return buffer_->bytes(); }
  bool prepareWriting() override;
  void finishAccess() override { buffer_->endAccess(); }
  std::shared_ptr<PixelBlock> snapshotBlock() override;

  const DmaBufDevice& device_;
  std::unique_ptr<DmaBuf> buffer_;
  std::shared_ptr<PixelBlockAllocator> snapshotAllocator_;
};

}  // namespace tavrel
