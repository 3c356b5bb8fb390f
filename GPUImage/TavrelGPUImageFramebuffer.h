#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/TextureCache.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// A frame in the graph: a texture, usually with a GL framebuffer object to render into it.
///
/// A receiver locks it while it needs the contents; the last unlock returns it to the shared cache. On the fast path
/// the texture is backed by a pixel buffer, whose bytes can be read without a further copy; on the plain path there are
/// no bytes to read. Create, lock, unlock and destroy on any thread; use the rest on the video-processing queue. GL
/// failures stop the program.
class TAVREL_API TavrelGPUImageFramebuffer : public std::enable_shared_from_this<TavrelGPUImageFramebuffer> {
 public:
  /// `size` is in pixels, truncated for GL. With `onlyTexture` there is no framebuffer object, and the texture has no
  /// storage yet.
  TavrelGPUImageFramebuffer(Size size, const TavrelGPUTextureOptions& textureOptions, bool onlyTexture);
  /// A render target with the default options.
  explicit TavrelGPUImageFramebuffer(Size size);
  /// Wraps a texture owned by the caller: not reference-counted, cached or deleted.
  TavrelGPUImageFramebuffer(Size size, GLuint overriddenTexture);
  /// Wraps the texture of a pixel buffer's plane likewise, and holds both, so that the texture is not reused while
  /// queues still read it.
  explicit TavrelGPUImageFramebuffer(const std::shared_ptr<TextureCacheTexture>& texture, std::size_t plane = 0);
  TavrelGPUImageFramebuffer(const TavrelGPUImageFramebuffer&) = delete;
  TavrelGPUImageFramebuffer& operator=(const TavrelGPUImageFramebuffer&) = delete;
  ~TavrelGPUImageFramebuffer();

  /// Number of framebuffers that own their texture, in use or idle. Any thread.
  static std::int64_t ownedCount();

  Size size() const;
  const TavrelGPUTextureOptions& textureOptions() const;
  GLuint texture() const;
  /// True if there is no framebuffer object.
  bool missingFramebuffer() const;

  /// Allocates the texture and, unless `pixels` is null, fills it: rows without padding. Leaves it bound.
  void uploadPicture(GLsizei width, GLsizei height, GLenum format, const void* pixels);
  /// A number unique to the contents if they are a still picture: uploaded, with counting disabled. 0 for anything
  /// else.
  std::uint64_t stillNumber() const;
  /// Restores the options' filters and wrap modes, which an earlier user may have changed. Leaves the texture bound to
  /// texture unit 1.
  void resetSampling();

  /// Binds the framebuffer object and sets the viewport to its whole size.
  void activateFramebuffer();

  void lock();
  /// Without a lock it stops the program.
  void unlock();
  void clearAllLocks();
  /// While disabled, the framebuffer is not returned to the cache and `framebufferReferenceCount` is frozen. Locks
  /// still held when counting is enabled again count from then on.
  void disableReferenceCounting();
  void enableReferenceCounting();
  std::int64_t framebufferReferenceCount() const;

  /// An image of the contents. On the fast path it is premultiplied BGRA, shares the pixel buffer's bytes and releases
  /// the framebuffer's lock when destroyed; on the plain path it is a straight RGBA copy, and the lock is released at
  /// once. A deep one gives a copy too.
  std::shared_ptr<Image> newCGImageFromFramebufferContents();

  /// Ends a read lock and a hold on the pixel buffer.
  void restoreRenderTarget();
  /// Keeps the bytes readable until the matching `unlockAfterReading`; nests.
  void lockForReading();
  void unlockAfterReading();
  std::uint64_t readLockCount() const;
  /// Stride in bytes.
  std::size_t bytesPerRow() const;
  /// The pixels as B, G, R, A, valid until the framebuffer is drawn into again; nullptr on the plain path.
  std::uint8_t* byteBuffer();
  /// Waits for GL to finish, then returns the pixel buffer; nullptr on the plain path.
  std::shared_ptr<PixelBuffer> pixelBuffer();
  /// The pixel buffer; nullptr on the plain path.
  const std::shared_ptr<PixelBuffer>& renderTarget() const;

 private:
  friend class FramebufferContents;
  struct Implementation;
  void drawPending() const;
  void generateFramebuffer();
  void generateRenderTarget();
  void destroyFramebuffer();
  std::shared_ptr<Image> newDeepImage();
  bool ownsPixelBuffer() const;
  const Pimpl<Implementation> implementation_;
};

/// Release callbacks of the images' data providers: the first frees `data`; the second ends the image's hold on the
/// framebuffer and deletes `info`, a heap-allocated `std::shared_ptr<TavrelGPUImageFramebuffer>`.
TAVREL_API void TavrelDataProviderReleaseCallback(void* info, const void* data, std::size_t size);
TAVREL_API void TavrelDataProviderUnlockCallback(void* info, const void* data, std::size_t size);

}  // namespace tavrel
