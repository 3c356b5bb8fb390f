#include "Platform/Graphics/Private/LentBacking.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {

LentBacking::LentBacking(const PixelLayout& layout, Images images, Reader reader)
    : StagedBacking(layout, std::make_shared<PixelBlockAllocator>(layout.byteCount)),
      hasImages_(images[0] != nullptr),
      images_(std::move(images)),
      reader_(std::move(reader)) {}

void LentBacking::showNext() {
  discardPicture();
  bytesWritten();
  areBytesOld_ = true;
  isStaged_ = false;
}

void LentBacking::end() {
  const bool isNeeded = hasPicture() && !isStaged_;
  if (isNeeded && makeBytes()) bytesWritten();
  isStaged_ = true;
  images_ = {};
  reader_ = nullptr;
}

bool LentBacking::isRead() {
  std::erase_if(reads_, [](const GLFence& fence) { return fence.isReached(); });
  return reads_.empty();
}

Expected<std::shared_ptr<GLTexture>> LentBacking::makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                              std::size_t plane) {
  if (const auto& image = images_.at(plane); image && !isStaged_) {
    sharegroup.deleteSurplusTextures();
    if (const auto name = image->createTexture()) {
      GLTextureShape imported = shape;
      imported.isImported = true;
      return std::make_shared<GLTexture>(sharegroup.shared_from_this(), *name, imported);
    }
    ConsoleLog::write("GL shows an imported picture only as a copy");
  }
  return StagedBacking::makeTexture(sharegroup, shape, plane);
}

void LentBacking::uploadTo(GLTexture& texture, std::size_t plane) {
  const bool isImported = texture.shape().isImported;
  // What others wrote since is sure to be seen only by a texture that is told of the memory anew.
  if (isImported && !isStaged_ && images_.at(plane)->show(texture.name())) return;
  if (!makeBytes()) return;
  if (isImported) giveStorage(texture);  // of its own
  StagedBacking::uploadTo(texture, plane);
}

bool LentBacking::downloadFrom(GLTexture& texture, NativeContext& context) {
  if (!StagedBacking::downloadFrom(texture, context)) return false;
  areBytesOld_ = false;
  return true;
}

std::uint8_t* LentBacking::currentBytes() { return makeBytes() ? StagedBacking::currentBytes() : nullptr; }

bool LentBacking::prepareWriting() {
  if (!makeBytes() || !StagedBacking::prepareWriting()) return false;
  isStaged_ = true;
  return true;
}

std::shared_ptr<PixelBlock> LentBacking::snapshotBlock() {
  return makeBytes() ? StagedBacking::snapshotBlock() : nullptr;
}

bool LentBacking::makeBytes() {
  if (!areBytesOld_) return StagedBacking::ensureBytes();
  // Of the picture before there may be readers.
  if (!takeFreshBlock()) return false;
  std::uint8_t* const bytes = StagedBacking::currentBytes();
  if (!reader_ || !reader_(layout(), bytes)) {
    ConsoleLog::write("A picture in memory of a device could not be read");
    std::memset(bytes, 0, layout().byteCount);
  }
  TransferCounters::shared().bytesCopied += layout().byteCount;
  areBytesOld_ = false;
  return true;
}

}  // namespace tavrel
