#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

namespace tavrel {

/// What the driver can do beyond OpenGL ES 2.0, as far as moving pixels goes.
struct GLCapabilities {
  bool bgraTextures = false;     ///< GL_EXT_texture_format_BGRA8888
  bool bgraIntoRGBA = false;     ///< takes GL_BGRA_EXT bytes for internal format GL_RGBA, and renders to it
  bool readBGRA = false;         ///< GL_EXT_read_format_bgra
  bool unpackRowLength = false;  ///< GL_EXT_unpack_subimage
  bool redTextures = false;      ///< GL_EXT_texture_rg

  /// The internal format of BGRA textures, however they are asked for.
  GLint bgraInternalFormat() const { return bgraIntoRGBA ? GL_RGBA : GL_BGRA_EXT; }

  /// With a context current.
  static GLCapabilities probe();
};

}  // namespace tavrel
