#pragma once

#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "Platform/Graphics/Private/DmaBufImport.h"
#include "Platform/Graphics/Private/GLFence.h"
#include "Platform/Graphics/Private/StagedBacking.h"

namespace tavrel {

/// A pixel buffer whose picture lies in memory of somebody else's. Textures show it there; bytes are made of it when
/// they are asked for. Once they are written, or the memory goes away, it is a staged one, until the next picture.
class LentBacking final : public StagedBacking {
 public:
  using Images = std::array<std::shared_ptr<const DmaBufImage>, 2>;
  using Reader = std::function<bool(const PixelLayout& layout, std::uint8_t* bytes)>;

  /// Without images textures are made of the bytes.
  LentBacking(const PixelLayout& layout, Images images, Reader reader);

  // With the owner's lock.
  /// There is a new picture in the memory.
  void showNext();
  /// The memory goes away.
  void end();
  /// Whether the GPU has done all that was noted.
  bool isRead();

 private:
  bool sharesMemory() const override { return hasImages_; }
  bool isLent() const override { return true; }
  void noteGPURead(GLFence read) override { reads_.push_back(std::move(read)); }
  Expected<std::shared_ptr<GLTexture>> makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                   std::size_t plane) override;
  void uploadTo(GLTexture& texture, std::size_t plane) override;
  bool downloadFrom(GLTexture& texture, NativeContext& context) override;
  bool ensureBytes() override { return areBytesOld_ || StagedBacking::ensureBytes(); }
  std::uint8_t* currentBytes() override;
  bool prepareWriting() override;
  std::shared_ptr<PixelBlock> snapshotBlock() override;
  bool makeBytes();

  const bool hasImages_;
  Images images_;
  Reader reader_;
  std::vector<GLFence> reads_;
  bool areBytesOld_ = false;  // those of the memory are newer
  bool isStaged_ = false;     // the picture is in the bytes alone
};

}  // namespace tavrel
