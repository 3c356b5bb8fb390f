#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCache.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// A picture on its way through the graph: a texture, usually with a GL framebuffer object to render into it.
///
/// Whoever receives one locks it for as long as it needs the picture and unlocks it after use; the last unlock hands it
/// back to the shared cache. On the fast path the texture is backed by a pixel buffer, whose bytes can be read without
/// a further copy; on the plain path the operations on bytes have nothing to work on. Any thread may create, lock,
/// unlock and destroy; the rest is for the video-processing queue. GL failures stop the program.
class TAVREL_API TavrelGPUImageFramebuffer : public std::enable_shared_from_this<TavrelGPUImageFramebuffer> {
 public:
  /// `size` in pixels, truncated for GL. With `onlyTexture` there is no framebuffer object and the texture has no
  /// storage yet.
  TavrelGPUImageFramebuffer(Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture);
  /// A render target with the default options.
  explicit TavrelGPUImageFramebuffer(Size size);
  /// Wraps a texture that somebody else owns: not counted, never pooled, not deleted.
  TavrelGPUImageFramebuffer(Size size, GLuint overriddenTexture);
  /// Wraps the texture of a whole pixel buffer in the same way. Keeps both for as long as it lives, so that readers on
  /// other queues never see the texture reused under them.
  explicit TavrelGPUImageFramebuffer(const std::shared_ptr<TextureCacheTexture>& texture);
  TavrelGPUImageFramebuffer(const TavrelGPUImageFramebuffer&) = delete;
  TavrelGPUImageFramebuffer& operator=(const TavrelGPUImageFramebuffer&) = delete;
  ~TavrelGPUImageFramebuffer();

  /// How many there are whose texture is their own, in use or idle. Any thread.
  static std::int64_t ownedCount();

  Size size() const;
  const TavrelGPUTextureOptions& textureOptions() const;
  GLuint texture() const;
  /// True without a framebuffer object.
  bool missingFramebuffer() const;

  /// Gives the texture storage of `width` x `height` pixels and, unless `pixels` is null, this picture: rows without
  /// gaps from the bottom up, in `format` and the type of the options. Leaves the texture bound.
  void uploadPicture(GLsizei width, GLsizei height, GLenum format, const void* pixels);
  /// Samples the texture by the options' filters and wrap modes again, whatever its last user has set. Leaves it
  /// bound to texture unit 1.
  void resetSampling();

  /// Makes it what GL draws into, in its whole size.
  void activateFramebuffer();

  void lock();
  /// Without a lock the program stops.
  void unlock();
  void clearAllLocks();
  /// While disabled the framebuffer stays with its owner, and `framebufferReferenceCount` as it is. Locks that readers
  /// still hold when counting is enabled again count from then on.
  void disableReferenceCounting();
  void enableReferenceCounting();
  std::int64_t framebufferReferenceCount() const;

  /// An image of the contents: premultiplied BGRA that shares the pixel buffer's bytes on the fast path (the
  /// framebuffer's lock is released when the image is), straight RGBA in bytes of its own on the plain one (the lock is
  /// released at once).
  std::shared_ptr<Image> newCGImageFromFramebufferContents();

  /// Ends a read lock and releases one hold on the pixel buffer.
  void restoreRenderTarget();
  /// Keeps the bytes readable until the matching `unlockAfterReading`. Counted.
  void lockForReading();
  void unlockAfterReading();
  std::uint64_t readLockCount() const;
  /// Bytes from one row to the next.
  std::size_t bytesPerRow() const;
  /// The pixels as B, G, R, A; nullptr on the plain path. Valid until the framebuffer is drawn into again.
  std::uint8_t* byteBuffer();
  /// The pixel buffer behind the texture once GL has finished drawing; none on the plain path.
  std::shared_ptr<PixelBuffer> pixelBuffer();
  /// The pixel buffer behind the texture; none on the plain path.
  const std::shared_ptr<PixelBuffer>& renderTarget() const;

 private:
  struct Implementation;

  void generateFramebuffer();
  void generateRenderTarget();
  void destroyFramebuffer();
  bool ownsPixelBuffer() const;

  std::unique_ptr<Implementation> implementation_;
};

/// Release callbacks of the images' data providers: the first frees `data`, the second ends the image's hold on the
/// framebuffer that `info` points to (a heap-allocated `std::shared_ptr<TavrelGPUImageFramebuffer>`, which it deletes).
TAVREL_API void TavrelDataProviderReleaseCallback(void* info, const void* data, std::size_t size);
TAVREL_API void TavrelDataProviderUnlockCallback(void* info, const void* data, std::size_t size);

}  // namespace tavrel
