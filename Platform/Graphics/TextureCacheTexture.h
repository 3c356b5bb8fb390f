#pragma once

#include <GLES2/gl2.h>

#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class GLTexture;
class PixelBuffer;

/// A GL texture that shows a pixel buffer; made by `TextureCache`. Holds the buffer, so that a pool does not reuse it
/// meanwhile. The texture outlives this object and stays with the buffer. For shared memory the destructor sends
/// off the current context's commands, so that the buffer's next owner waits for the GPU. Any thread.
class TAVREL_API TextureCacheTexture {
 public:
  TextureCacheTexture(std::shared_ptr<PixelBuffer> buffer, std::shared_ptr<GLTexture> texture);
  TextureCacheTexture(const TextureCacheTexture&) = delete;
  TextureCacheTexture& operator=(const TextureCacheTexture&) = delete;
  ~TextureCacheTexture();

  GLenum target() const { return GL_TEXTURE_2D; }
  GLuint name() const;
  /// Uploads the bytes if the CPU wrote them since the texture was made. Has no effect on a thread where no context of
  /// the texture's sharegroup is current.
  void refresh();
  const std::shared_ptr<PixelBuffer>& pixelBuffer() const { return buffer_; }

 private:
  std::shared_ptr<PixelBuffer> buffer_;
  std::shared_ptr<GLTexture> texture_;
};

}  // namespace tavrel
