#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Graphics/PixelFormat.h"

namespace tavrel {

class GLTexture;
class PixelBlockAllocator;
class PixelBufferBacking;
class TextureCacheCore;
struct TextureRequest;

/// Who mostly works on a pixel buffer's image. Both can read and write it in either case.
enum class PixelBufferUse : unsigned { byCPUAndGPU = 0, byGPU = 1 };

/// What the bytes of a pixel buffer are locked for. Reading waits for the GPU to finish drawing the image, writing also
/// for it to finish reading the image.
enum class PixelBufferLock : unsigned { readWrite = 0, readOnly = 1 };

/// An image that CPU and GPU can both read and write. Held by shared_ptr; any thread.
///
/// The image may exist as bytes and as a GL texture (made by `TextureCache`). The buffer tracks which is newer, and
/// transfers the image only when the stale side is needed:
///
///     state       | CPU write lock    | noteGPUWrite | lock, baseAddress, snapshot | createTexture
///     ------------+-------------------+--------------+-----------------------------+---------------------------
///     undefined   | CPU newer         | GPU newer    | undefined (zeros)           | undefined, nothing moved
///     CPU newer   | CPU newer         | GPU newer    | CPU newer                   | same, one upload
///     same        | CPU newer         | GPU newer    | same                        | same
///     GPU newer   | download, then    | GPU newer    | same, one download          | GPU newer, the same texture
///                 | CPU newer         |              |                             |
///
/// A buffer without a texture is never "GPU newer". The bytes are allocated on first use, so a render target that is
/// never read has none. An image written in one sharegroup and used in another is downloaded and uploaded.
///
/// Downloads run on the calling thread if a `GLContext` of the texture's sharegroup is current there; drawing by other
/// contexts must have finished (glFinish). Otherwise the texture cache's executor runs them while the caller waits:
/// never call from a thread that the executor's thread waits for.
///
/// Snapshots share the bytes. Before changing bytes that a snapshot or another thread's lock still uses, the buffer
/// takes another block of memory from a short idle list, to which blocks return when snapshots are dropped. Drawing and
/// taking a snapshot that is dropped some frames later thus allocates nothing and costs one download per frame.
///
/// Where the graphics device offers memory that the CPU reads well (GBM, dma-buf), 'BGRA' buffers for both that are
/// made after the display was chosen live there: bytes and texture are one, nothing moves, and a snapshot is a copy.
/// `TAVREL_ZERO_COPY=0` turns that off. Buffers for the GPU keep the layout that it works fastest on.
class TAVREL_API PixelBuffer {
 public:
  /// Fails as `PixelLayout::create` does; memory is not touched yet.
  static Expected<std::shared_ptr<PixelBuffer>> create(std::size_t width, std::size_t height, PixelFormat format,
                                                       PixelBufferUse use = PixelBufferUse::byCPUAndGPU);

  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;
  ~PixelBuffer();

  std::size_t width() const;
  std::size_t height() const;
  PixelFormat pixelFormat() const;
  const PixelLayout& layout() const;
  std::size_t planeCount() const;
  /// Stride of the first plane, in bytes; at least 4 × width for 'BGRA'.
  std::size_t bytesPerRow() const;
  std::size_t bytesPerRowOfPlane(std::size_t plane) const;
  /// Whether textures show the buffer's memory in place.
  bool sharesMemory() const;
  /// Whether the memory is a device's (`LentPixelBuffer`), which has one buffer fewer to write into while this one is
  /// held.
  bool isLent() const;
  /// The same picture in the two planes of 4:2:0 in which a camera wrote it, if textures show those in place
  /// (`LentPixelBuffer`): drawing from them saves the conversion to 'BGRA'. It holds `buffer`. nullptr for all others.
  static std::shared_ptr<PixelBuffer> planesOf(const std::shared_ptr<PixelBuffer>& buffer);

  /// Brings the bytes up to date and fixes their address until the matching `unlockBaseAddress`. Locks nest and may be
  /// held by several threads. With `readWrite`, textures made afterwards show the changed bytes.
  void lockBaseAddress(PixelBufferLock lock);
  /// Ends a lock of the same kind. Without one it stops the program.
  void unlockBaseAddress(PixelBufferLock lock);
  /// Top row of the first plane, aligned to 64 bytes. Fetch it anew after each lock. It stays readable after the unlock
  /// until the image is next written.
  std::uint8_t* baseAddress();
  /// nullptr if there is no such plane.
  std::uint8_t* baseAddressOfPlane(std::size_t plane);

  /// Marks the bytes as stale because the GPU draws, or drew, into the texture of the current context's sharegroup
  /// (without a current context: the texture made last). Call it in the same block of GL work as the drawing, so that
  /// no reader comes in between. Has no effect without a texture.
  void noteGPUWrite();

  /// The present contents, for slow readers such as an encoder. nullptr, with a message on the console, if the texture
  /// cannot be read or memory runs out.
  std::shared_ptr<const PixelBufferSnapshot> snapshot();

  /// Sets or replaces an attachment, which describes the image, such as its colour space (PixelBufferAttachments.h).
  /// Attachments that propagate are copied to images derived from this one.
  void setAttachment(std::string key, std::string value, bool propagates);
  void removeAttachment(std::string_view key);
  std::optional<std::string> attachment(std::string_view key) const;
  /// Sets the propagating attachments on `to`, replacing those under the same keys.
  void copyPropagatedAttachments(PixelBuffer& to) const;

 private:
  friend class LentPixelBuffer;
  friend class PixelBufferPool;
  friend class TextureCache;
  friend class TextureCacheTexture;
  struct Implementation;

  explicit PixelBuffer(std::unique_ptr<Implementation> implementation);
  static std::unique_ptr<PixelBuffer> make(const PixelLayout& layout, std::shared_ptr<PixelBlockAllocator> allocator,
                                           PixelBufferUse use = PixelBufferUse::byCPUAndGPU);
  static std::unique_ptr<PixelBuffer> make(std::unique_ptr<PixelBufferBacking> backing);

  Expected<std::shared_ptr<GLTexture>> texture(const std::shared_ptr<TextureCacheCore>& core,
                                               const TextureRequest& request);
  void refresh(GLTexture& texture);
  void noteGPURead(const GLTexture& texture);
  void exclusively(const std::function<void()>& work);
  PixelBuffer* planes() const;
  void setPlanes(std::unique_ptr<PixelBuffer> planes);
  void prepareForReuse();

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
