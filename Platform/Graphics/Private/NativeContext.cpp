#include "Platform/Graphics/Private/NativeContext.h"

#include <fmt/format.h>

#include <array>
#include <string_view>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/GraphicsStatus.h"
#include "Platform/Graphics/Private/GraphicsFailure.h"
#include "Platform/Graphics/Private/TransferCounters.h"

namespace tavrel {
namespace {

EGLDisplay display() { return GraphicsDisplay::shared().nativeDisplay(); }

/// Contexts that the calling thread makes are of OpenGL ES; afterwards of what the application had chosen there.
class OpenGLESScope {
 public:
  OpenGLESScope() : previous_(eglQueryAPI()) { eglBindAPI(EGL_OPENGL_ES_API); }
  OpenGLESScope(const OpenGLESScope&) = delete;
  OpenGLESScope& operator=(const OpenGLESScope&) = delete;
  ~OpenGLESScope() { eglBindAPI(previous_); }

 private:
  const EGLenum previous_;
};

}  // namespace

std::string eglErrorName(EGLint code) {
  static constexpr std::array<const char*, 15> kNames = {
      "EGL_SUCCESS",       "EGL_NOT_INITIALIZED", "EGL_BAD_ACCESS",        "EGL_BAD_ALLOC",
      "EGL_BAD_ATTRIBUTE", "EGL_BAD_CONFIG",      "EGL_BAD_CONTEXT",       "EGL_BAD_CURRENT_SURFACE",
      "EGL_BAD_DISPLAY",   "EGL_BAD_MATCH",       "EGL_BAD_NATIVE_PIXMAP", "EGL_BAD_NATIVE_WINDOW",
      "EGL_BAD_PARAMETER", "EGL_BAD_SURFACE",     "EGL_CONTEXT_LOST"};
  const EGLint index = code - EGL_SUCCESS;
  if (index < 0 || index >= static_cast<EGLint>(kNames.size())) return fmt::format("EGL error 0x{:x}", code);
  return kNames[static_cast<std::size_t>(index)];
}

bool containsWord(const char* list, const char* name) {
  if (list == nullptr) return false;
  std::string_view rest(list);
  while (!rest.empty()) {
    const std::size_t end = rest.find(' ');
    if (rest.substr(0, end) == name) return true;
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  return false;
}

Expected<NativeContext> NativeContext::create(EGLContext shareWith) {
  GraphicsDisplay& shared = GraphicsDisplay::shared();
  if (shared.error()) return tl::unexpected<Error>(*shared.error());

  static constexpr std::array<EGLint, 3> kVersion = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  const OpenGLESScope scope;
  EGLContext context = eglCreateContext(display(), shared.nativeConfig(), shareWith, kVersion.data());
  if (context == EGL_NO_CONTEXT) {
    return graphicsFailure(GraphicsStatus::contextUnavailable, "cannot create an OpenGL ES 2.0 context on {}: {}",
                           shared.description(), eglErrorName(eglGetError()));
  }
  if (shared.supportsSurfacelessContexts()) return NativeContext(context, EGL_NO_SURFACE);

  static constexpr std::array<EGLint, 5> kOnePixel = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
  EGLSurface surface = eglCreatePbufferSurface(display(), shared.nativeConfig(), kOnePixel.data());
  NativeContext native(context, surface);
  if (surface == EGL_NO_SURFACE) {
    return graphicsFailure(GraphicsStatus::contextUnavailable, "cannot create a surface for a context on {}: {}",
                           shared.description(), eglErrorName(eglGetError()));
  }
  return native;
}

NativeContext::NativeContext(NativeContext&& other) noexcept
    : context_(std::exchange(other.context_, EGL_NO_CONTEXT)),
      surface_(std::exchange(other.surface_, EGL_NO_SURFACE)),
      scratchFramebuffer_(std::exchange(other.scratchFramebuffer_, 0)) {}

NativeContext::~NativeContext() {
  if (ProcessEnd::isOnEndingThread()) return;  // the driver may be gone, and takes everything with it
  deleteScratchFramebuffer();
  if (surface_ != EGL_NO_SURFACE) eglDestroySurface(display(), surface_);
  if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display(), context_);
}

// Some drivers keep framebuffer objects in the sharegroup, where they would outlive their context.
void NativeContext::deleteScratchFramebuffer() {
  if (scratchFramebuffer_ == 0) return;
  const EGLContext previous = eglGetCurrentContext();
  const EGLSurface drawSurface = eglGetCurrentSurface(EGL_DRAW);
  const EGLSurface readSurface = eglGetCurrentSurface(EGL_READ);
  if (!makeCurrent()) return;  // still current on another thread
  glDeleteFramebuffers(1, &scratchFramebuffer_);
  eglMakeCurrent(display(), drawSurface, readSurface, previous);
}

bool NativeContext::makeCurrent() const {
  return !ProcessEnd::isOnEndingThread() && eglMakeCurrent(display(), surface_, surface_, context_) == EGL_TRUE;
}

bool NativeContext::clearCurrent() {
  return !ProcessEnd::isOnEndingThread() &&
         eglMakeCurrent(display(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT) == EGL_TRUE;
}

GLuint NativeContext::scratchFramebuffer() {
  if (scratchFramebuffer_ == 0) {
    glGenFramebuffers(1, &scratchFramebuffer_);
    ++TransferCounters::shared().framebuffersCreated;
  }
  return scratchFramebuffer_;
}

}  // namespace tavrel
