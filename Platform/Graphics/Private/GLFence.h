#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>

namespace tavrel {

/// A mark in a context's stream of commands that other contexts can wait for, on `EGL_KHR_fence_sync` and
/// `EGL_KHR_wait_sync`. Where the display lacks them, setting one waits until the commands are done instead.
class GLFence {
 public:
  /// Behind all commands that the calling thread's context was given so far, and sends them off.
  static GLFence afterCurrentCommands();

  GLFence() = default;
  GLFence(GLFence&& other) noexcept;
  GLFence& operator=(GLFence&& other) noexcept;
  ~GLFence();

  /// Holds the later commands of the calling thread's context back until the mark is reached.
  void waitOnGPU() const;
  bool isReached() const;

 private:
  explicit GLFence(EGLSyncKHR sync) : sync_(sync) {}

  EGLSyncKHR sync_ = EGL_NO_SYNC_KHR;
};

}  // namespace tavrel
