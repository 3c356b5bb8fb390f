#include "Platform/Graphics/Private/GLCapabilities.h"

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include "Platform/Graphics/Private/GLStateKeepers.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

bool acceptsBGRAIntoRGBA() {
  GLuint texture = 0;
  GLuint framebuffer = 0;
  glGenTextures(1, &texture);
  glGenFramebuffers(1, &framebuffer);
  bool accepted = false;
  {
    BoundTexture boundTexture(texture);
    clearGLErrors();
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 4, 4, 0, GL_BGRA_EXT, GL_UNSIGNED_BYTE, nullptr);
    accepted = glGetError() == GL_NO_ERROR;
    BoundFramebuffer boundFramebuffer(framebuffer, texture);
    accepted = accepted && glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  }
  glDeleteFramebuffers(1, &framebuffer);
  glDeleteTextures(1, &texture);
  return accepted;
}

}  // namespace

GLCapabilities GLCapabilities::probe() {
  const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
  GLCapabilities found;
  found.bgraTextures = containsWord(extensions, "GL_EXT_texture_format_BGRA8888");
  found.bgraIntoRGBA = found.bgraTextures && acceptsBGRAIntoRGBA();
  found.readBGRA = containsWord(extensions, "GL_EXT_read_format_bgra");
  found.unpackRowLength = containsWord(extensions, "GL_EXT_unpack_subimage");
  found.redTextures = containsWord(extensions, "GL_EXT_texture_rg");
  return found;
}

}  // namespace tavrel
