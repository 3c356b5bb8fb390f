#pragma once

#include <GLES2/gl2.h>

#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class GLTexture;
class PixelBuffer;

/// A GL texture that shows a pixel buffer; made by `TextureCache`. Holds the buffer, so that a pool does not hand the
/// picture to somebody else while it is in use. When it goes, the texture stays with the buffer; what the current
/// context was told to do with shared memory is sent off before. Any thread.
class TAVREL_API TextureCacheTexture {
 public:
  TextureCacheTexture(std::shared_ptr<PixelBuffer> buffer, std::shared_ptr<GLTexture> texture);
  TextureCacheTexture(const TextureCacheTexture&) = delete;
  TextureCacheTexture& operator=(const TextureCacheTexture&) = delete;
  ~TextureCacheTexture();

  GLenum target() const { return GL_TEXTURE_2D; }
  GLuint name() const;
  /// Lets the texture show bytes that the CPU wrote since it was made. Nothing happens on a thread where no context of
  /// its sharegroup is current.
  void refresh();
  const std::shared_ptr<PixelBuffer>& pixelBuffer() const { return buffer_; }

 private:
  std::shared_ptr<PixelBuffer> buffer_;
  std::shared_ptr<GLTexture> texture_;
};

}  // namespace tavrel
