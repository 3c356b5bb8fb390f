#include "Platform/Graphics/Private/GLFence.h"

#include <GLES2/gl2.h>

#include <utility>

#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/Private/EGLFunctions.h"
#include "Platform/Graphics/Private/NativeContext.h"

namespace tavrel {
namespace {

EGLDisplay display() { return GraphicsDisplay::shared().nativeDisplay(); }

bool hasSyncs() {
  static const bool answer = [] {
    const char* extensions = eglQueryString(display(), EGL_EXTENSIONS);
    return containsWord(extensions, "EGL_KHR_fence_sync") && containsWord(extensions, "EGL_KHR_wait_sync") &&
           EGLFunctions::shared().hasSyncs();
  }();
  return answer;
}

}  // namespace

GLFence GLFence::afterCurrentCommands() {
  EGLSyncKHR sync = EGL_NO_SYNC_KHR;
  if (hasSyncs()) {
    const GLDriverLock lock;
    sync = EGLFunctions::shared().createSync(display(), EGL_SYNC_FENCE_KHR, nullptr);
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
  if (sync_ != EGL_NO_SYNC_KHR) EGLFunctions::shared().destroySync(display(), sync_);
}

void GLFence::waitOnGPU() const {
  if (sync_ != EGL_NO_SYNC_KHR) EGLFunctions::shared().waitSync(display(), sync_, 0);
}

bool GLFence::isReached() const {
  return sync_ == EGL_NO_SYNC_KHR ||
         EGLFunctions::shared().clientWaitSync(display(), sync_, 0, 0) != EGL_TIMEOUT_EXPIRED_KHR;
}
// NOLINTEND(clang-analyzer-core.CallAndMessage)

}  // namespace tavrel
