// The library is linked with --wrap for these functions (cmake/TavrelGuardedCommands.cmake): each call that it makes
// comes here first, whoever wrote it, and holds the driver's lock.
#include <EGL/egl.h>
#include <GLES2/gl2.h>

#include "Platform/Graphics/GLDriverLock.h"

using tavrel::GLDriverLock;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

/// Declares the function that was meant, and defines the one that is called.
#define TAVREL_GUARDED(Result, name, parameters, arguments) \
  Result __real_##name parameters;                          \
  Result __wrap_##name parameters {                         \
    const GLDriverLock lock;                                \
    return __real_##name arguments;                         \
  }

// What goes through the lists of other contexts, or changes those that they go through.
TAVREL_GUARDED(void, glClear, (GLbitfield mask), (mask))
TAVREL_GUARDED(void, glDrawArrays, (GLenum mode, GLint first, GLsizei count), (mode, first, count))
TAVREL_GUARDED(void, glFlush, (), ())
TAVREL_GUARDED(void, glTexImage2D,
               (GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint border,
                GLenum format, GLenum type, const void* pixels),
               (target, level, internalFormat, width, height, border, format, type, pixels))
TAVREL_GUARDED(void, glTexSubImage2D,
               (GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                const void* pixels),
               (target, level, x, y, width, height, format, type, pixels))
TAVREL_GUARDED(void, glCopyTexSubImage2D,
               (GLenum target, GLint level, GLint xOffset, GLint yOffset, GLint x, GLint y, GLsizei width,
                GLsizei height),
               (target, level, xOffset, yOffset, x, y, width, height))
TAVREL_GUARDED(void, glGenerateMipmap, (GLenum target), (target))
TAVREL_GUARDED(EGLContext, eglCreateContext,
               (EGLDisplay display, EGLConfig config, EGLContext shareContext, const EGLint* attributes),
               (display, config, shareContext, attributes))
TAVREL_GUARDED(EGLBoolean, eglDestroyContext, (EGLDisplay display, EGLContext context), (display, context))

// The names of a sharegroup's objects. What is deleted while another context uses it goes onto that context's list.
TAVREL_GUARDED(void, glGenTextures, (GLsizei count, GLuint* names), (count, names))
TAVREL_GUARDED(void, glGenFramebuffers, (GLsizei count, GLuint* names), (count, names))
TAVREL_GUARDED(void, glGenRenderbuffers, (GLsizei count, GLuint* names), (count, names))
TAVREL_GUARDED(GLuint, glCreateProgram, (), ())
TAVREL_GUARDED(GLuint, glCreateShader, (GLenum type), (type))
TAVREL_GUARDED(void, glBindFramebuffer, (GLenum target, GLuint name), (target, name))
TAVREL_GUARDED(void, glBindRenderbuffer, (GLenum target, GLuint name), (target, name))
TAVREL_GUARDED(void, glDeleteTextures, (GLsizei count, const GLuint* names), (count, names))
TAVREL_GUARDED(void, glDeleteFramebuffers, (GLsizei count, const GLuint* names), (count, names))
TAVREL_GUARDED(void, glDeleteRenderbuffers, (GLsizei count, const GLuint* names), (count, names))
TAVREL_GUARDED(void, glDeleteProgram, (GLuint name), (name))
TAVREL_GUARDED(void, glDeleteShader, (GLuint name), (name))

void __real_glFinish();
// A function of its own, so that __wrap_glFinish is seen in the thread sanitizer's stacks and can be named there.
[[gnu::noinline]] static void waitForGPU() { __real_glFinish(); }
void __wrap_glFinish() {
  // What is waited for has been sent off, so that the others can go on meanwhile.
  if (GLDriverLock::isNeeded()) __wrap_glFlush();
  waitForGPU();
}

void __real_glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels);
void __wrap_glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels) {
  if (GLDriverLock::isNeeded()) __wrap_glFinish();
  const GLDriverLock lock;
  __real_glReadPixels(x, y, width, height, format, type, pixels);
}

EGLBoolean __real_eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context);
EGLBoolean __wrap_eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
  const GLDriverLock lock;  // the context that was current is flushed
  const EGLBoolean isDone = __real_eglMakeCurrent(display, draw, read, context);
  if (isDone == EGL_TRUE && context != EGL_NO_CONTEXT) GLDriverLock::examineDriver();
  return isDone;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
