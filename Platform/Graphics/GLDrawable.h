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

/// One presented picture of a `GLDrawable`: a texture whose bottom row comes first. Its texture is not drawn into again
/// while anybody holds the frame. Any thread.
class TAVREL_API GLDrawableFrame {
 public:
  GLDrawableFrame(std::unique_ptr<DrawableTexture> texture, std::weak_ptr<DrawableTexturePool> pool,
                  std::uint64_t sequenceNumber);
  GLDrawableFrame(const GLDrawableFrame&) = delete;
  GLDrawableFrame& operator=(const GLDrawableFrame&) = delete;
  /// Gives the texture back for a later frame.
  ~GLDrawableFrame();

  GLuint texture() const;
  int width() const;
  int height() const;
  /// Grows with every frame of the process.
  std::uint64_t sequenceNumber() const { return sequenceNumber_; }
  /// A context in this group sees the texture.
  const std::shared_ptr<GLSharegroup>& sharegroup() const;

  /// Lets what the calling thread's context is told from now on happen after the picture is drawn. The thread does not
  /// wait where EGL has `EGL_KHR_wait_sync`.
  void waitUntilDrawn() const;
  /// Says that what the calling thread's context was told so far reads the picture: it is drawn over only afterwards.
  void noteRead() const;

 private:
  const std::uint64_t sequenceNumber_;
  std::weak_ptr<DrawableTexturePool> pool_;
  mutable std::mutex mutex_;
  std::unique_ptr<DrawableTexture> texture_;
};

/// Where a renderbuffer's pictures go: the meeting point of the thread that draws and the one that shows.
///
/// The drawing side gives its renderbuffer the drawable's storage (`GLContext::renderbufferStorage`), draws and
/// presents (`GLContext::presentRenderbuffer`); the showing side takes `latestFrame` whenever it likes. Pictures change
/// hands by swapping textures: nothing is copied, neither side waits for the other, and the newest picture replaces one
/// that nobody took. Contents are not retained: after a present the renderbuffer holds some earlier picture. Any
/// thread. Stands on GL textures and EGL images.
class TAVREL_API GLDrawable {
 public:
  struct PixelSize {
    int width = 0;
    int height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
  };

  /// The size of the storage that is given out next.
  void setPixelSize(PixelSize size);
  PixelSize pixelSize() const;

  /// The newest presented picture; nullptr before the first.
  std::shared_ptr<const GLDrawableFrame> latestFrame() const;

 private:
  friend class DrawableStorage;
  void publish(std::shared_ptr<const GLDrawableFrame> frame);

  mutable std::mutex mutex_;
  PixelSize pixelSize_;
  std::shared_ptr<const GLDrawableFrame> latest_;
};

}  // namespace tavrel
