#include "Platform/Graphics/Private/GLFence.h"

#include <GLES2/gl2.h>

#include <utility>

#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

struct Functions {
  PFNEGLCREATESYNCKHRPROC create = nullptr;
  PFNEGLDESTROYSYNCKHRPROC destroy = nullptr;
  PFNEGLCLIENTWAITSYNCKHRPROC clientWait = nullptr;
  PFNEGLWAITSYNCKHRPROC wait = nullptr;
  bool isUsable = false;
};

EGLDisplay display() {
  return GraphicsDisplay::shared().nativeDisplay();
}

const Functions& functions() {
  static const Functions loaded = [] {
    Functions found;
    const char* extensions = eglQueryString(display(), EGL_EXTENSIONS);
    if (!containsWord(extensions, "EGL_KHR_fence_sync") || !containsWord(extensions, "EGL_KHR_wait_sync")) return found;
    found.create = reinterpret_cast<PFNEGLCREATESYNCKHRPROC>(eglGetProcAddress("eglCreateSyncKHR"));
    found.destroy = reinterpret_cast<PFNEGLDESTROYSYNCKHRPROC>(eglGetProcAddress("eglDestroySyncKHR"));
    found.clientWait = reinterpret_cast<PFNEGLCLIENTWAITSYNCKHRPROC>(eglGetProcAddress("eglClientWaitSyncKHR"));
    found.wait = reinterpret_cast<PFNEGLWAITSYNCKHRPROC>(eglGetProcAddress("eglWaitSyncKHR"));
    found.isUsable = found.create && found.destroy && found.clientWait && found.wait;
    return found;
  }();
  return loaded;
}

}  // namespace

GLFence GLFence::afterCurrentCommands() {
  EGLSyncKHR sync = EGL_NO_SYNC_KHR;
  if (functions().isUsable) {
    const GLDriverLock lock;
    sync = functions().create(display(), EGL_SYNC_FENCE_KHR, nullptr);
  }
  if (sync == EGL_NO_SYNC_KHR) {
    glFinish();
  } else {
    glFlush();
  }
  return GLFence(sync);
}

GLFence::GLFence(GLFence&& other) noexcept : sync_(std::exchange(other.sync_, EGL_NO_SYNC_KHR)) {}

GLFence& GLFence::operator=(GLFence&& other) noexcept {
  std::swap(sync_, other.sync_);
  return *this;
}

// NOLINTBEGIN(clang-analyzer-core.CallAndMessage): there is a sync only where there are the functions
GLFence::~GLFence() {
  if (sync_ != EGL_NO_SYNC_KHR) functions().destroy(display(), sync_);
}

void GLFence::waitOnGPU() const {
  if (sync_ != EGL_NO_SYNC_KHR) functions().wait(display(), sync_, 0);
}

bool GLFence::isReached() const {
  return sync_ == EGL_NO_SYNC_KHR || functions().clientWait(display(), sync_, 0, 0) != EGL_TIMEOUT_EXPIRED_KHR;
}
// NOLINTEND(clang-analyzer-core.CallAndMessage)

}  // namespace tavrel
