#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

namespace tavrel {

/// How a framebuffer's texture is sampled and stored, in GL enums. A filter whose options are the default ones stores
/// deep what it gets deep.
struct TavrelGPUTextureOptions {
  GLenum minFilter = GL_LINEAR;
  GLenum magFilter = GL_LINEAR;
  GLenum wrapS = GL_CLAMP_TO_EDGE;
  GLenum wrapT = GL_CLAMP_TO_EDGE;
  GLenum internalFormat = GL_RGBA;
  GLenum format = GL_BGRA_EXT;
  GLenum type = GL_UNSIGNED_BYTE;
  /// True for components of 16 bits. Such a framebuffer has no pixel buffer, and its image is one of
  /// `kBitmapPremultipliedRGBA16`.
  bool isDeep() const { return internalFormat == GL_RGBA16_EXT || internalFormat == GL_RGBA16F_EXT; }
  friend bool operator==(const TavrelGPUTextureOptions&, const TavrelGPUTextureOptions&) = default;
};

}  // namespace tavrel
