#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Foundation/Error.h"

namespace tavrel {

class GLSharegroup;

/// What a texture's storage looks like; textures of equal shape can stand in for each other.
struct GLTextureShape {
  GLsizei width = 0;
  GLsizei height = 0;
  GLint internalFormat = GL_RGBA;
  GLenum format = GL_BGRA_EXT;
  bool isImported = false;  ///< shows the memory of one certain buffer and is never recycled

  bool operator==(const GLTextureShape&) const = default;
};

/// Owns one GL texture name of a sharegroup. The destructor gives it back to the sharegroup, which deletes or recycles
/// it on a thread with a right context; so it may run on any thread, but not under a pixel buffer's lock.
class GLTexture {
 public:
  GLTexture(std::shared_ptr<GLSharegroup> sharegroup, GLuint name, const GLTextureShape& shape);
  GLTexture(const GLTexture&) = delete;
  GLTexture& operator=(const GLTexture&) = delete;
  ~GLTexture();

  GLuint name() const { return name_; }
  const GLTextureShape& shape() const { return shape_; }
  const std::shared_ptr<GLSharegroup>& sharegroup() const { return sharegroup_; }

 private:
  std::shared_ptr<GLSharegroup> sharegroup_;
  GLuint name_;
  GLTextureShape shape_;
};

/// Rows of bytes to upload or to read into.
struct GLPixels {
  std::uint8_t* bytes = nullptr;
  std::size_t bytesPerRow = 0;
  std::size_t bytesPerSample = 0;
};

/// The functions below need a context of the texture's sharegroup and leave GL's bindings and pixel store as they were.

/// A new texture with undefined contents, linear filters and clamped edges.
Expected<GLuint> createTextureStorage(const GLTextureShape& shape);
void setDefaultTextureParameters(GLuint name);
/// Gives a texture that shows imported memory storage of its own, with undefined contents.
void giveStorage(GLTexture& texture);
/// Replaces the texture's whole picture.
void uploadPixels(GLTexture& texture, const GLPixels& pixels);
/// Reads the whole picture of a BGRA texture through the framebuffer object `scratchFramebuffer`. False when GL
/// refuses.
bool downloadPixels(GLTexture& texture, GLuint scratchFramebuffer, const GLPixels& pixels);

}  // namespace tavrel
