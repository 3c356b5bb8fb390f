#pragma once

#include <cstddef>

#include "Platform/Graphics/PixelFormat.h"
#include "Platform/Graphics/Private/GLCapabilities.h"
#include "Platform/Graphics/Private/GLTexture.h"

namespace tavrel {

/// What `createTextureFromPixelBuffer` was asked for.
struct TextureRequest {
  GLint internalFormat = GL_RGBA;
  GLsizei width = 0;
  GLsizei height = 0;
  GLenum format = GL_BGRA_EXT;
  GLenum type = GL_UNSIGNED_BYTE;
  std::size_t plane = 0;

  /// The storage that serves the request for a buffer of this layout, or why none does.
  Expected<GLTextureShape> shape(const PixelLayout& layout, const GLCapabilities& capabilities) const;
};

}  // namespace tavrel
