#include "GLState.h"

#include <GLES3/gl3.h>

#include <cstddef>

#include "NextFunction.h"

GLuint boundTexture() {
  GLint name = 0;
  NEXT(glGetIntegerv)(GL_TEXTURE_BINDING_2D, &name);
  return static_cast<GLuint>(name);
}

Rows::Rows(GLenum rowLength, GLenum alignment, GLint pixels) : parameters_{rowLength, alignment} {
  for (std::size_t i = 0; i < parameters_.size(); ++i) NEXT(glGetIntegerv)(parameters_[i], &previous_[i]);
  NEXT(glPixelStorei)(rowLength, pixels);
  NEXT(glPixelStorei)(alignment, 4);
}

Rows::~Rows() {
  for (std::size_t i = 0; i < parameters_.size(); ++i) NEXT(glPixelStorei)(parameters_[i], previous_[i]);
}

GLuint attachedTexture() {
  GLint framebuffer = 0;
  NEXT(glGetIntegerv)(GL_FRAMEBUFFER_BINDING, &framebuffer);
  if (framebuffer == 0) return 0;
  const auto attachment = [](GLenum parameter) {
    GLint value = 0;
    NEXT(glGetFramebufferAttachmentParameteriv)(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, parameter, &value);
    return value;
  };
  if (attachment(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE) != GL_TEXTURE) return 0;
  return static_cast<GLuint>(attachment(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME));
}

std::vector<GLuint> sampledTextures() {
  GLint program = 0;
  GLint count = 0;
  GLint active = 0;
  NEXT(glGetIntegerv)(GL_CURRENT_PROGRAM, &program);
  NEXT(glGetIntegerv)(GL_ACTIVE_TEXTURE, &active);
  NEXT(glGetProgramiv)(static_cast<GLuint>(program), GL_ACTIVE_UNIFORMS, &count);
  std::vector<GLuint> textures;
  for (GLuint i = 0; i < static_cast<GLuint>(count); ++i) {
    std::array<char, 256> name{};
    GLint size = 0;
    GLenum type = 0;
    NEXT(glGetActiveUniform)(static_cast<GLuint>(program), i, name.size(), nullptr, &size, &type, name.data());
    if (type != GL_SAMPLER_2D) continue;
    GLint unit = 0;
    NEXT(glGetUniformiv)
    (static_cast<GLuint>(program), NEXT(glGetUniformLocation)(static_cast<GLuint>(program), name.data()), &unit);
    NEXT(glActiveTexture)(GL_TEXTURE0 + static_cast<GLenum>(unit));
    textures.push_back(boundTexture());
  }
  NEXT(glActiveTexture)(static_cast<GLenum>(active));
  return textures;
}
