#pragma once

#include <GLES2/gl2.h>

namespace tavrel {

/// Binds a texture to GL_TEXTURE_2D of the active unit, and puts the earlier one back.
class BoundTexture {
 public:
  explicit BoundTexture(GLuint name) {
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous_);
    glBindTexture(GL_TEXTURE_2D, name);
  }
  BoundTexture(const BoundTexture&) = delete;
  BoundTexture& operator=(const BoundTexture&) = delete;
  ~BoundTexture() { glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previous_)); }

 private:
  GLint previous_ = 0;
};

/// Attaches a texture to a framebuffer object, and detaches it and puts the earlier framebuffer back.
class BoundFramebuffer {
 public:
  BoundFramebuffer(GLuint framebuffer, GLuint texture) {
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &previous_);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
  }
  BoundFramebuffer(const BoundFramebuffer&) = delete;
  BoundFramebuffer& operator=(const BoundFramebuffer&) = delete;
  ~BoundFramebuffer() {
    // A texture that stays attached would outlive its deletion.
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previous_));
  }

 private:
  GLint previous_ = 0;
};

/// Sets a pixel store parameter, and puts the earlier value back.
class PixelStore {
 public:
  PixelStore(GLenum parameter, GLint value) : parameter_(parameter) {
    glGetIntegerv(parameter, &previous_);
    glPixelStorei(parameter, value);
  }
  PixelStore(const PixelStore&) = delete;
  PixelStore& operator=(const PixelStore&) = delete;
  ~PixelStore() { glPixelStorei(parameter_, previous_); }

 private:
  GLenum parameter_;
  GLint previous_ = 0;
};

/// Forgets errors of earlier commands, so that the next question is about the commands that follow.
inline void clearGLErrors() {
  for (int i = 0; i < 16 && glGetError() != GL_NO_ERROR; ++i) {
  }
}

}  // namespace tavrel
