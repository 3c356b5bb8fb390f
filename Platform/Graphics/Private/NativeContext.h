#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <string>

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// The name of an EGL error code, for messages.
std::string eglErrorName(EGLint code);
/// Whether a list of names separated by blanks holds exactly `name`.
bool containsWord(const char* list, const char* name);

/// Owns one EGL context of the process's display, and the pbuffer of one pixel that it needs where surfaceless contexts
/// do not exist.
class NativeContext {
 public:
  static Expected<NativeContext> create(EGLContext shareWith);

  NativeContext(NativeContext&& other) noexcept;
  NativeContext& operator=(NativeContext&&) = delete;
  ~NativeContext();

  EGLContext handle() const { return context_; }
  bool makeCurrent() const;
  static bool clearCurrent();

  /// The framebuffer object that downloads use, created on first use. With the context current.
  GLuint scratchFramebuffer();

 private:
  NativeContext(EGLContext context, EGLSurface surface) : context_(context), surface_(surface) {}
  void deleteScratchFramebuffer();

  EGLContext context_;
  EGLSurface surface_;
  GLuint scratchFramebuffer_ = 0;
};

}  // namespace tavrel
