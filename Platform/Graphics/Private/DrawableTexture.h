#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Graphics/Private/GLFence.h"
#include "Platform/Graphics/Private/GLSharegroup.h"

namespace tavrel {

/// A texture that a renderbuffer can have as its storage, through an EGL image, with the fences of those who draw and
/// read it.
class DrawableTexture {
 public:
  /// With a context of `sharegroup` current. nullptr when GL has no memory.
  static std::unique_ptr<DrawableTexture> create(std::shared_ptr<GLSharegroup> sharegroup, GLDrawable::PixelSize size);
  DrawableTexture(const DrawableTexture&) = delete;
  DrawableTexture& operator=(const DrawableTexture&) = delete;
  ~DrawableTexture();

  GLuint name() const { return name_; }
  GLDrawable::PixelSize size() const { return size_; }
  const std::shared_ptr<GLSharegroup>& sharegroup() const { return sharegroup_; }

  /// Makes it the storage of the renderbuffer bound to GL_RENDERBUFFER. False where there are no EGL images.
  bool becomeRenderbufferStorage() const;

  void noteDrawn() { drawn_ = GLFence::afterCurrentCommands(); }
  void waitUntilDrawn() const { drawn_.waitOnGPU(); }
  void noteRead();
  /// True when drawing can begin without waiting for a reader.
  bool isReadByNobody() const;
  /// Lets later commands of the current context wait for the readers.
  void waitUntilRead();

 private:
  DrawableTexture(std::shared_ptr<GLSharegroup> sharegroup, GLDrawable::PixelSize size);
  void createImage();

  const std::shared_ptr<GLSharegroup> sharegroup_;
  const GLDrawable::PixelSize size_;
  GLuint name_ = 0;
  EGLImageKHR image_ = EGL_NO_IMAGE_KHR;
  GLFence drawn_;
  std::vector<GLFence> reads_;
};

/// The textures of one storage that nobody shows.
class DrawableTexturePool {
 public:
  /// One that no reader uses any more, else the one that has been idle longest; nullptr when there is none.
  std::unique_ptr<DrawableTexture> take(bool evenIfRead);
  void put(std::unique_ptr<DrawableTexture> texture);

 private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<DrawableTexture>> idle_;  // the one idle longest first
};

}  // namespace tavrel
