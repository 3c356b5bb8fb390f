#pragma once

#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <gbm.h>

#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/Private/DmaBuf.h"

namespace tavrel {

/// The display's graphics device as a source of memory that GL textures can show without a copy (GBM,
/// EGL_EXT_image_dma_buf_import, GL_OES_EGL_image). Any thread.
class DmaBufDevice {
 public:
  /// The device, or nullptr where this does not work or is switched off (`TAVREL_ZERO_COPY=0`). Found out once, by
  /// moving known pictures both ways; memory that the CPU reads slowly counts as not working, since copies are faster
  /// there. As long as no display was chosen, nullptr without a decision.
  static const DmaBufDevice* shared();

  std::unique_ptr<DmaBuf> createBuffer(std::size_t width, std::size_t height) const;
  /// A new texture that shows the buffer's memory. With a context current.
  Expected<GLuint> createTexture(const DmaBuf& buffer) const;

 private:
  bool open();
  bool passesSelfTest() const;
  static bool showsWhatTheCPUWrites(DmaBuf& buffer);
  static bool showsWhatTheGPUDraws(DmaBuf& buffer);
  bool isReadFast() const;

  EGLDisplay display_ = EGL_NO_DISPLAY;
  gbm_device* device_ = nullptr;  // lives as long as the process, like the display
};

}  // namespace tavrel
