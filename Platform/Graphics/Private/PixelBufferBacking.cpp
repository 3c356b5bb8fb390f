#include "Platform/Graphics/Private/PixelBufferBacking.h"

#include <algorithm>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {
namespace {

/// Drawing in two sharegroups at once may move the newest picture while a reader is on its way to it.
constexpr int kFetchAttempts = 4;

bool sameStorage(GLTextureShape existing, const GLTextureShape& wanted) {
  existing.isImported = wanted.isImported;
  return existing == wanted;
}

}  // namespace

PixelBufferBacking::Entry* PixelBufferBacking::find(const GLSharegroup* sharegroup, std::size_t plane) {
  auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.plane == plane && entry.texture->sharegroup().get() == sharegroup;
  });
  return found != entries_.end() ? &*found : nullptr;
}

PixelBufferBacking::Entry* PixelBufferBacking::newestEntry() {
  auto found =
      std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.version == latest_; });
  return found != entries_.end() ? &*found : nullptr;
}

bool PixelBufferBacking::makeBytesCurrent(Lock& lock) {
  for (int attempt = 0; attempt < kFetchAttempts; ++attempt) {
    if (bytesVersion_ == latest_) return ensureBytes();
    Entry* newest = newestEntry();
    if (newest == nullptr) return false;

    std::shared_ptr<TextureCacheCore> core = newest->core.lock();
    const std::shared_ptr<GLSharegroup> sharegroup = newest->texture->sharegroup();
    bool moved = false;
    bool done = false;
    const auto work = [&](NativeContext& context) {
      Lock inner(*lock.mutex());
      Entry* source = newestEntry();
      moved = bytesVersion_ != latest_ && (source == nullptr || source->texture->sharegroup() != sharegroup);
      done = !moved && download(context);
    };
    lock.unlock();
    const bool ran = core != nullptr ? core->run(work) : sharegroup->perform(work);
    core.reset();
    lock.lock();
    if (done) return true;
    if (!ran || !moved) return false;
  }
  return false;
}

bool PixelBufferBacking::download(NativeContext& context) {
  if (bytesVersion_ == latest_) return ensureBytes();  // another reader was faster
  if (!downloadFrom(*newestEntry()->texture, context)) return false;
  bytesVersion_ = latest_;
  return true;
}

bool PixelBufferBacking::fetchFromOtherSharegroups(Lock& lock, const GLSharegroup& sharegroup) {
  if (bytesVersion_ == latest_) return true;
  const Entry* newest = newestEntry();
  if (newest != nullptr && newest->texture->sharegroup().get() == &sharegroup) return true;
  return makeBytesCurrent(lock);
}

void PixelBufferBacking::lockBytes(Lock& lock, PixelBufferLock kind) {
  if (!makeBytesCurrent(lock))
    ConsoleLog::write("A pixel buffer is locked whose picture could not be read from the GPU");
  if (kind == PixelBufferLock::readOnly) {
    ++readLocks_;
    return;
  }
  if (prepareWriting()) bytesWritten();
  ++writeLocks_;
}

bool PixelBufferBacking::unlockBytes(PixelBufferLock kind) {
  int& count = kind == PixelBufferLock::readOnly ? readLocks_ : writeLocks_;
  if (count == 0) return false;
  --count;
  // What the GPU drew since the lock began is newer than these bytes.
  if (kind == PixelBufferLock::readWrite && bytesVersion_ == latest_) bytesWritten();
  if (!isLocked()) finishAccess();
  return true;
}

std::uint8_t* PixelBufferBacking::bytes(Lock& lock) {
  if (!makeBytesCurrent(lock)) ConsoleLog::write("The picture of a pixel buffer could not be read from the GPU");
  return currentBytes();
}

std::shared_ptr<PixelBlock> PixelBufferBacking::snapshot(Lock& lock) {
  if (!makeBytesCurrent(lock)) return nullptr;
  std::shared_ptr<PixelBlock> block = snapshotBlock();
  if (block != nullptr) block->addReader();
  return block;
}

void PixelBufferBacking::noteGPUWrite() {
  if (entries_.empty() || layout_.format != PixelFormat::bgra32) return;
  const GLContext* context = GLContext::current();
  Entry* written = context != nullptr ? find(context->sharegroup().get(), 0) : &entries_.back();
  if (written != nullptr) written->version = ++latest_;
}

Expected<std::shared_ptr<GLTexture>> PixelBufferBacking::texture(const std::shared_ptr<TextureCacheCore>& core,
                                                                 const TextureRequest& request) {
  GLSharegroup& sharegroup = *core->sharegroup();
  const auto shape = request.shape(layout_, sharegroup.capabilities());
  if (!shape) return tl::unexpected<Error>(shape.error());

  Entry* found = find(&sharegroup, request.plane);
  if (found == nullptr || !sameStorage(found->texture->shape(), *shape)) {
    auto made = makeTexture(sharegroup, *shape, request.plane);
    if (!made) return made;
    if (found != nullptr) entries_.erase(entries_.begin() + (found - entries_.data()));
    entries_.push_back({core, std::move(*made), request.plane, 0});
  } else {
    std::rotate(entries_.begin() + (found - entries_.data()), entries_.begin() + (found - entries_.data()) + 1,
                entries_.end());
  }
  Entry& entry = entries_.back();
  entry.core = core;
  bringUpToDate(entry);
  return entry.texture;
}

void PixelBufferBacking::refresh(GLTexture& texture) {
  for (Entry& entry : entries_) {
    if (entry.texture.get() == &texture) return bringUpToDate(entry);
  }
}

void PixelBufferBacking::bringUpToDate(Entry& entry) {
  if (entry.version >= bytesVersion_) return;
  uploadTo(*entry.texture, entry.plane);
  entry.version = bytesVersion_;
}

void PixelBufferBacking::discardPicture() {
  latest_ = 0;
  bytesVersion_ = 0;
  for (Entry& entry : entries_) entry.version = 0;
  readLocks_ = 0;
  writeLocks_ = 0;
  finishAccess();
}

}  // namespace tavrel
