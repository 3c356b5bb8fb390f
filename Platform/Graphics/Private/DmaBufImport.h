#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/LentPixelBuffer.h"
#include "Platform/Graphics/Private/GLSharegroup.h"

namespace tavrel {

/// Memory of a device as the display knows it, which textures can show. Any thread.
class DmaBufImage {
 public:
  static Expected<std::shared_ptr<const DmaBufImage>> create(EGLDisplay display, const DeviceMemory& memory);
  DmaBufImage(const DmaBufImage&) = delete;
  DmaBufImage& operator=(const DmaBufImage&) = delete;
  ~DmaBufImage();

  /// A new texture that shows the memory. With a context current.
  Expected<GLuint> createTexture() const;
  /// Lets a texture show the memory, as it is now. False when GL refuses. With a context current.
  bool show(GLuint texture) const;

 private:
  DmaBufImage(EGLDisplay display, EGLImageKHR image) : display_(display), image_(image) {}

  EGLDisplay display_;
  EGLImageKHR image_;
};

/// The display's taking of other devices' memory (EGL_EXT_image_dma_buf_import and, where it is there,
/// EGL_EXT_image_dma_buf_import_modifiers; GL_OES_EGL_image). Any thread.
class DmaBufImport {
 public:
  /// nullptr where the display has none, where it is switched off (`TAVREL_ZERO_COPY=0`), and as long as no display was
  /// chosen.
  static const DmaBufImport* shared();
  static bool isSwitchedOff();

  /// As `LentPixelBuffer::modifiersOf`.
  std::vector<std::uint64_t> modifiersOf(std::uint32_t format) const;
  Expected<std::shared_ptr<const DmaBufImage>> import(const DeviceMemory& memory) const;
  /// Has the GPU read a picture of colours back as 'BGRA'. Not with a context of another sharegroup's in use.
  bool read(const DmaBufImage& image, const PixelLayout& layout, std::uint8_t* bytes) const;

 private:
  bool open();

  EGLDisplay display_ = EGL_NO_DISPLAY;
  bool namesModifiers_ = false;
  std::shared_ptr<GLSharegroup> sharegroup_;  // for reading back
};

}  // namespace tavrel
