#pragma once

#include <GLES2/gl2.h>

#include <memory>

#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Graphics/Private/DrawableTexture.h"

namespace tavrel {

/// The storage of one renderbuffer that presents to a drawable: a few textures that take turns. On the context's
/// thread.
class DrawableStorage {
 public:
  /// Gives the bound renderbuffer its first storage. nullptr when GL has no memory.
  static std::unique_ptr<DrawableStorage> create(const std::shared_ptr<GLSharegroup>& sharegroup,
                                                 std::shared_ptr<GLDrawable> drawable, GLDrawable::PixelSize size);

  /// Publishes what was drawn and gives the bound renderbuffer other storage. Without EGL images the picture is copied
  /// on the GPU from the bound framebuffer instead. False when there is no memory for a further picture.
  bool present();

 private:
  DrawableStorage() = default;
  std::unique_ptr<DrawableTexture> nextTexture();

  /// Drawn, newest, shown, and one more so that nobody waits.
  static constexpr int kMostTextures = 4;

  std::shared_ptr<GLSharegroup> sharegroup_;
  std::shared_ptr<GLDrawable> drawable_;
  GLDrawable::PixelSize size_;
  std::shared_ptr<DrawableTexturePool> pool_ = std::make_shared<DrawableTexturePool>();
  std::unique_ptr<DrawableTexture> drawing_;
  int textureCount_ = 0;
  bool isCopying_ = false;
};

}  // namespace tavrel
