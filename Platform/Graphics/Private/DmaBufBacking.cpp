#include "Platform/Graphics/Private/DmaBufBacking.h"

#include <cstring>
#include <utility>

#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {

std::unique_ptr<DmaBufBacking> DmaBufBacking::create(const DmaBufDevice& device, const PixelLayout& layout) {
  if (layout.format != PixelFormat::bgra32) return nullptr;
  auto buffer = device.createBuffer(layout.width, layout.height);
  if (buffer == nullptr) return nullptr;
  PixelLayout padded = layout;
  padded.planes[0].bytesPerRow = buffer->bytesPerRow();
  padded.byteCount = buffer->byteCount();
  TransferCounters& counters = TransferCounters::shared();
  ++counters.blocksAllocated;
  counters.bytesAllocated += padded.byteCount;
  return std::unique_ptr<DmaBufBacking>(new DmaBufBacking(device, std::move(buffer), padded));
}

DmaBufBacking::DmaBufBacking(const DmaBufDevice& device, std::unique_ptr<DmaBuf> buffer, const PixelLayout& layout)
    : PixelBufferBacking(layout),
      device_(device),
      buffer_(std::move(buffer)),
      snapshotAllocator_(std::make_shared<PixelBlockAllocator>(layout.byteCount)) {}

Expected<std::shared_ptr<GLTexture>> DmaBufBacking::makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                                std::size_t) {
  sharegroup.deleteSurplusTextures();
  auto name = device_.createTexture(*buffer_);
  if (!name) return tl::unexpected<Error>(name.error());
  GLTextureShape imported = shape;
  imported.isImported = true;
  return std::make_shared<GLTexture>(sharegroup.shared_from_this(), *name, imported);
}

void DmaBufBacking::uploadTo(GLTexture&, std::size_t) {
  if (const auto access = buffer_->access()) buffer_->beginAccess(*access);  // publishes what was written so far
}

bool DmaBufBacking::downloadFrom(GLTexture&, NativeContext&) {
  glFinish();
  buffer_->beginAccess(isLockedForWriting() ? PixelBufferLock::readWrite : PixelBufferLock::readOnly);
  return true;
}

bool DmaBufBacking::ensureBytes() {
  if (!buffer_->access()) buffer_->beginAccess(PixelBufferLock::readOnly);
  return true;
}

bool DmaBufBacking::prepareWriting() {
  if (buffer_->access() != PixelBufferLock::readWrite) buffer_->beginAccess(PixelBufferLock::readWrite);
  return true;
}

std::shared_ptr<PixelBlock> DmaBufBacking::snapshotBlock() {
  std::shared_ptr<PixelBlock> copy = snapshotAllocator_->acquire();
  if (copy == nullptr) return nullptr;
  std::memcpy(copy->bytes(), buffer_->bytes(), copy->byteCount());
  TransferCounters::shared().bytesCopied += copy->byteCount();
  if (!isLocked()) finishAccess();
  return copy;
}

}  // namespace tavrel
