#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <vector>

/// The texture that is bound to the active unit.
GLuint boundTexture();
/// The texture that is drawn into; 0 for a renderbuffer.
GLuint attachedTexture();
/// The textures that the current program samples.
std::vector<GLuint> sampledTextures();

/// Sets what says how pixels lie in memory, and puts it back.
class Rows {
 public:
  Rows(GLenum rowLength, GLenum alignment, GLint pixels);
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  ~Rows();

 private:
  std::array<GLenum, 2> parameters_;
  std::array<GLint, 2> previous_{};
};
