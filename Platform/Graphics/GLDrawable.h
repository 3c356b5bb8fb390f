#pragma once

#include <GLES2/gl2.h>

#include <cstdint>
#include <memory>
#include <mutex>

#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/GLContext.h"

namespace tavrel {

class DrawableTexture;
class DrawableTexturePool;

/// A presented frame of a `GLDrawable`: a texture, bottom row first, that is not drawn into while the frame is held.
/// Any thread.
class TAVREL_API GLDrawableFrame {
 public:
  GLDrawableFrame(std::unique_ptr<DrawableTexture> texture, std::weak_ptr<DrawableTexturePool> pool,
                  std::uint64_t sequenceNumber);
  GLDrawableFrame(const GLDrawableFrame&) = delete;
  GLDrawableFrame& operator=(const GLDrawableFrame&) = delete;
  /// Returns the texture for reuse.
  ~GLDrawableFrame();

  GLuint texture() const;
  int width() const;
  int height() const;
  /// Increases with every frame of the process.
  std::uint64_t sequenceNumber() const { return sequenceNumber_; }
  /// The sharegroup of the texture.
  const std::shared_ptr<GLSharegroup>& sharegroup() const;

  /// Orders later commands of the calling thread's context after the drawing of the frame. With `EGL_KHR_wait_sync` the
  /// thread does not block.
  void waitUntilDrawn() const;
  /// Marks the frame as read by the commands issued so far in the calling thread's context; the texture is reused only
  /// after them.
  void noteRead() const;

 private:
  const std::uint64_t sequenceNumber_;
  std::weak_ptr<DrawableTexturePool> pool_;
  mutable std::mutex mutex_;
  std::unique_ptr<DrawableTexture> texture_;
};

/// Hands frames from the thread that draws to the one that shows them.
///
/// The producer attaches the drawable's storage to its renderbuffer (`GLContext::renderbufferStorage`), draws and
/// presents (`GLContext::presentRenderbuffer`); the consumer takes `latestFrame` at any time. Textures are swapped:
/// nothing is copied, neither side waits, and the latest frame replaces one not taken. After a present the
/// renderbuffer's contents are undefined. Built on GL textures and EGL images. Any thread.
class TAVREL_API GLDrawable {
 public:
  struct PixelSize {
    int width = 0;
    int height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
  };

  /// The size of storage attached from now on.
  void setPixelSize(PixelSize size);
  PixelSize pixelSize() const;

  /// The latest presented frame; nullptr before the first.
  std::shared_ptr<const GLDrawableFrame> latestFrame() const;

 private:
  friend class DrawableStorage;
  void publish(std::shared_ptr<const GLDrawableFrame> frame);

  mutable std::mutex mutex_;
  PixelSize pixelSize_;
  std::shared_ptr<const GLDrawableFrame> latest_;
};

}  // namespace tavrel
