#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/Private/GLFence.h"
#include "Platform/Graphics/Private/PixelBlock.h"
#include "Platform/Graphics/Private/TextureCacheCore.h"
#include "Platform/Graphics/Private/TextureRequest.h"

namespace tavrel {

/// Where a pixel buffer's picture lives, and which of its copies is the newest one.
///
/// Every write of the picture, by the CPU or the GPU, is a version. The bytes and each texture carry the version that
/// they show; who carries the latest one is up to date. Version 0 is the undefined picture that all begin with.
///
/// The owner's mutex guards every member: callers hold `Lock`. Whoever waits for the GL thread lets go of it first, so
/// that the GL thread may always take it.
class PixelBufferBacking {
 public:
  using Lock = std::unique_lock<std::mutex>;
  using Version = std::uint64_t;

  explicit PixelBufferBacking(const PixelLayout& layout) : layout_(layout) {}
  PixelBufferBacking(const PixelBufferBacking&) = delete;
  PixelBufferBacking& operator=(const PixelBufferBacking&) = delete;
  virtual ~PixelBufferBacking() = default;

  const PixelLayout& layout() const { return layout_; }
  /// Whether textures show the memory in place.
  virtual bool sharesMemory() const = 0;
  /// Whether the memory is somebody else's, who writes it again once the picture is let go.
  virtual bool isLent() const { return false; }
  /// A texture of the lent memory is not drawn from any more behind the mark.
  virtual void noteGPURead(GLFence /*read*/) {}

  void lockBytes(Lock& lock, PixelBufferLock kind);
  /// False when no lock of this kind is held.
  bool unlockBytes(PixelBufferLock kind);
  /// The current bytes; nullptr when no memory is left.
  std::uint8_t* bytes(Lock& lock);
  /// The current bytes for a snapshot, with a reader added; nullptr when they cannot be had.
  std::shared_ptr<PixelBlock> snapshot(Lock& lock);

  void noteGPUWrite();
  /// With a context of the core's sharegroup current.
  Expected<std::shared_ptr<GLTexture>> texture(const std::shared_ptr<TextureCacheCore>& core,
                                               const TextureRequest& request);
  /// Brings bytes that are newer to the texture. With a context of its sharegroup current.
  void refresh(GLTexture& texture);
  /// Makes the bytes current when the newest picture is in a texture of another sharegroup than `sharegroup`.
  bool fetchFromOtherSharegroups(Lock& lock, const GLSharegroup& sharegroup);

  /// Forgets the picture, the locks and nothing else.
  void discardPicture();

 protected:
  /// What the memory behind the bytes can do. Each is called with the lock held; the first three with GL current.
  virtual Expected<std::shared_ptr<GLTexture>> makeTexture(GLSharegroup& sharegroup, const GLTextureShape& shape,
                                                           std::size_t plane) = 0;
  virtual void uploadTo(GLTexture& texture, std::size_t plane) = 0;
  virtual bool downloadFrom(GLTexture& texture, NativeContext& context) = 0;
  /// Sees to it that there are bytes, zeroed when they are new.
  virtual bool ensureBytes() = 0;
  virtual std::uint8_t* currentBytes() = 0;
  /// Makes the bytes writable without touching what others still read.
  virtual bool prepareWriting() = 0;
  virtual void finishAccess() {}
  virtual std::shared_ptr<PixelBlock> snapshotBlock() = 0;

  bool isLocked() const { return readLocks_ + writeLocks_ > 0; }
  bool isLockedForWriting() const { return writeLocks_ > 0; }
  bool hasPicture() const { return latest_ != 0; }
  /// What is, or could be, in the bytes is a new version.
  void bytesWritten() { bytesVersion_ = ++latest_; }

 private:
  struct Entry {
    std::weak_ptr<TextureCacheCore> core;  // the cache that last asked, for its executor
    std::shared_ptr<GLTexture> texture;
    std::size_t plane;
    Version version;
  };

  Entry* find(const GLSharegroup* sharegroup, std::size_t plane);
  Entry* newestEntry();
  bool makeBytesCurrent(Lock& lock);
  bool download(NativeContext& context);
  void bringUpToDate(Entry& entry);

  PixelLayout layout_;
  std::vector<Entry> entries_;  // the most recently used last
  Version latest_ = 0;
  Version bytesVersion_ = 0;
  int readLocks_ = 0;
  int writeLocks_ = 0;
};

}  // namespace tavrel
