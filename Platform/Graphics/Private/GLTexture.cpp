#include "Platform/Graphics/Private/GLTexture.h"

#include <libyuv/convert_argb.h>

#include <utility>

#include "Platform/Graphics/Private/GLSharegroup.h"
#include "Platform/Graphics/Private/GLStateKeepers.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

void uploadRows(const GLTextureShape& shape, const GLPixels& pixels) {
  for (GLsizei row = 0; row < shape.height; ++row) {
    const std::uint8_t* bytes = pixels.bytes + static_cast<std::size_t>(row) * pixels.bytesPerRow;
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, row, shape.width, 1, shape.format, GL_UNSIGNED_BYTE, bytes);
  }
}

}  // namespace

GLTexture::GLTexture(std::shared_ptr<GLSharegroup> sharegroup, GLuint name, const GLTextureShape& shape)
    : sharegroup_(std::move(sharegroup)), name_(name), shape_(shape) {}

GLTexture::~GLTexture() { sharegroup_->releaseTexture(name_, shape_); }

Expected<GLuint> createTextureStorage(const GLTextureShape& shape) {
  GLuint name = 0;
  glGenTextures(1, &name);
  ++TransferCounters::shared().texturesCreated;
  setDefaultTextureParameters(name);
  BoundTexture bound(name);
  clearGLErrors();
  glTexImage2D(GL_TEXTURE_2D, 0, shape.internalFormat, shape.width, shape.height, 0, shape.format, GL_UNSIGNED_BYTE,
               nullptr);
  const GLenum error = glGetError();
  if (error == GL_NO_ERROR) return name;
  glDeleteTextures(1, &name);
  ++TransferCounters::shared().texturesDeleted;
  return graphicsFailure(GraphicsStatus::graphicsCommandFailed,
                         "cannot create a texture of {}x{} pixels: GL error 0x{:x}", shape.width, shape.height, error);
}

void setDefaultTextureParameters(GLuint name) {
  BoundTexture bound(name);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

void giveStorage(GLTexture& texture) {
  const GLTextureShape& shape = texture.shape();
  BoundTexture bound(texture.name());
  glTexImage2D(GL_TEXTURE_2D, 0, shape.internalFormat, shape.width, shape.height, 0, shape.format, GL_UNSIGNED_BYTE,
               nullptr);
}

void uploadPixels(GLTexture& texture, const GLPixels& pixels) {
  const GLTextureShape& shape = texture.shape();
  const std::size_t tightRow = static_cast<std::size_t>(shape.width) * pixels.bytesPerSample;
  BoundTexture bound(texture.name());
  PixelStore alignment(GL_UNPACK_ALIGNMENT, 1);
  if (pixels.bytesPerRow == tightRow) {
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, shape.width, shape.height, shape.format, GL_UNSIGNED_BYTE, pixels.bytes);
  } else if (texture.sharegroup()->capabilities().unpackRowLength) {
    PixelStore rowLength(GL_UNPACK_ROW_LENGTH_EXT, static_cast<GLint>(pixels.bytesPerRow / pixels.bytesPerSample));
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, shape.width, shape.height, shape.format, GL_UNSIGNED_BYTE, pixels.bytes);
  } else {
    uploadRows(shape, pixels);
  }
  TransferCounters& counters = TransferCounters::shared();
  ++counters.uploads;
  counters.bytesUploaded += tightRow * static_cast<std::size_t>(shape.height);
}

bool downloadPixels(GLTexture& texture, GLuint scratchFramebuffer, const GLPixels& pixels) {
  const GLTextureShape& shape = texture.shape();
  const bool readsBGRA = texture.sharegroup()->capabilities().readBGRA;
  BoundFramebuffer bound(scratchFramebuffer, texture.name());
  PixelStore alignment(GL_PACK_ALIGNMENT, 4);
  clearGLErrors();
  glReadPixels(0, 0, shape.width, shape.height, readsBGRA ? GL_BGRA_EXT : GL_RGBA, GL_UNSIGNED_BYTE, pixels.bytes);
  if (glGetError() != GL_NO_ERROR) return false;
  if (!readsBGRA) {
    const int stride = static_cast<int>(pixels.bytesPerRow);
    libyuv::ABGRToARGB(pixels.bytes, stride, pixels.bytes, stride, shape.width, shape.height);
  }
  TransferCounters& counters = TransferCounters::shared();
  ++counters.downloads;
  counters.bytesDownloaded += pixels.bytesPerRow * static_cast<std::size_t>(shape.height);
  return true;
}

}  // namespace tavrel
