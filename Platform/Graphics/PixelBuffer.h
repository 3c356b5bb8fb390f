#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Graphics/PixelFormat.h"

namespace tavrel {

class GLTexture;
class PixelBlockAllocator;
class TextureCacheCore;
struct TextureRequest;

/// For what the bytes of a pixel buffer are locked.
enum class PixelBufferLock : unsigned { readWrite = 0, readOnly = 1 };

/// A picture in memory that the CPU and the GPU can both read and write. Always held in a shared_ptr; any thread.
///
/// The picture may exist twice, as bytes and as a GL texture (made by `TextureCache`). The buffer knows which of the
/// two is newer and moves the picture only when the stale side is asked for:
///
///     state       | CPU write lock    | noteGPUWrite | lock, baseAddress, snapshot | createTexture
///     ------------+-------------------+--------------+-----------------------------+---------------------------
///     undefined   | CPU newer         | GPU newer    | undefined (zeros)           | undefined, nothing moved
///     CPU newer   | CPU newer         | GPU newer    | CPU newer                   | same, one upload
///     same        | CPU newer         | GPU newer    | same                        | same
///     GPU newer   | download, then    | GPU newer    | same, one download          | GPU newer, the same texture
///                 | CPU newer         |              |                             |
///
/// A buffer without a texture is never "GPU newer". Memory for the bytes is allocated when they are first asked for, so
/// a render target that nobody reads has none. A picture written in one sharegroup and asked for in another one goes
/// down and up.
///
/// Downloads run on the calling thread when a `GLContext` of the texture's sharegroup is current there (what was drawn
/// with another context must be finished first, by glFinish), otherwise through the texture cache's executor, and the
/// caller waits. Never call from a thread that the executor's thread is waiting for.
///
/// Snapshots share the bytes. Before bytes change that a snapshot or another thread's lock still shows, the buffer
/// takes other memory, from a short list of idle blocks; blocks come back to it when the snapshot is dropped. Drawing,
/// taking a snapshot and dropping it some frames later therefore allocates no memory and costs one download a frame.
///
/// Where the graphics device offers memory that the CPU reads well (GBM, dma-buf), 'BGRA' buffers made after the
/// display was chosen live there: bytes and texture are one, nothing moves, and a snapshot is a copy.
/// `TAVREL_ZERO_COPY=0` turns that off.
class TAVREL_API PixelBuffer {
 public:
  /// Fails as `PixelLayout::create` does; memory is not touched yet.
  static Expected<std::shared_ptr<PixelBuffer>> create(std::size_t width, std::size_t height, PixelFormat format);

  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;
  ~PixelBuffer();

  std::size_t width() const;
  std::size_t height() const;
  PixelFormat pixelFormat() const;
  const PixelLayout& layout() const;
  std::size_t planeCount() const;
  /// Bytes from one row to the next, of the first plane. At least 4 × width for 'BGRA'.
  std::size_t bytesPerRow() const;
  std::size_t bytesPerRowOfPlane(std::size_t plane) const;

  /// Makes the bytes current and keeps their address in place until the matching `unlockBaseAddress`. Locks nest and
  /// may be held by several threads. `readWrite` says that the bytes will be changed: textures made afterwards show
  /// them.
  void lockBaseAddress(PixelBufferLock lock);
  /// Ends one lock of the same kind. An unlock without a lock stops the program.
  void unlockBaseAddress(PixelBufferLock lock);
  /// The first byte of the top row (of the first plane), aligned to 64 bytes. Take it again after each lock. It stays
  /// readable after the unlock until the picture is next written.
  std::uint8_t* baseAddress();
  /// nullptr when there is no such plane.
  std::uint8_t* baseAddressOfPlane(std::size_t plane);

  /// Says that the GPU draws, or drew, into the texture made for the current context's sharegroup (without a current
  /// context: the one made last): bytes are stale from here on. Call it in the same block of GL work as the drawing, so
  /// that no reader comes in between. Cheap; nothing happens when there is no texture.
  void noteGPUWrite();

  /// The picture as it is now, for readers that take their time, such as an encoder. nullptr, with a line in the
  /// console log, when the GPU's picture could not be read or no memory is left.
  std::shared_ptr<const PixelBufferSnapshot> snapshot();

  /// Attachments describe the picture, for instance its colours (the constants in PixelBufferAttachments.h). Those that
  /// propagate are taken along when a picture is derived from this one. Setting a key again replaces it.
  void setAttachment(std::string key, std::string value, bool propagates);
  void removeAttachment(std::string_view key);
  std::optional<std::string> attachment(std::string_view key) const;
  /// Sets the propagating attachments on `to`, over what it has under the same keys.
  void copyPropagatedAttachments(PixelBuffer& to) const;

 private:
  friend class PixelBufferPool;
  friend class TextureCache;
  struct Implementation;

  explicit PixelBuffer(std::unique_ptr<Implementation> implementation);
  static std::unique_ptr<PixelBuffer> make(const PixelLayout& layout, std::shared_ptr<PixelBlockAllocator> allocator);

  Expected<std::shared_ptr<GLTexture>> texture(const std::shared_ptr<TextureCacheCore>& core,
                                               const TextureRequest& request);
  void prepareForReuse();

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
