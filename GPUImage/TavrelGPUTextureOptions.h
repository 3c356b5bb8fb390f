#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

namespace tavrel {

/// How a framebuffer's texture is sampled and stored, in GL enums.
struct TavrelGPUTextureOptions {
  GLenum minFilter = GL_LINEAR;
  GLenum magFilter = GL_LINEAR;
  GLenum wrapS = GL_CLAMP_TO_EDGE;
  GLenum wrapT = GL_CLAMP_TO_EDGE;
  GLenum internalFormat = GL_RGBA;
  GLenum format = GL_BGRA_EXT;
  GLenum type = GL_UNSIGNED_BYTE;
  friend bool operator==(const TavrelGPUTextureOptions&, const TavrelGPUTextureOptions&) = default;
};

}  // namespace tavrel
