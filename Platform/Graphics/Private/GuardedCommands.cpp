// The library is linked with --wrap for these functions (cmake/TavrelGuardedCommands.cmake): each call that it makes
// comes here first, whoever wrote it, and holds the driver's lock.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <SDL.h>

#include "Platform/Graphics/GLDriverLock.h"

using tavrel::GLDriverLock;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names

/// Declares the function that was meant, and opens the one that is called.
#define TAVREL_GUARDED(Result, name, parameters) \
  extern "C" Result __real_##name parameters;    \
  extern "C" Result __wrap_##name parameters

TAVREL_GUARDED(void, glClear, (GLbitfield mask)) {
  const GLDriverLock lock;
  __real_glClear(mask);
}

TAVREL_GUARDED(void, glDrawArrays, (GLenum mode, GLint first, GLsizei count)) {
  const GLDriverLock lock;
  __real_glDrawArrays(mode, first, count);
}

TAVREL_GUARDED(void, glFlush, ()) {
  const GLDriverLock lock;
  __real_glFlush();
}

TAVREL_GUARDED(void, glFinish, ()) {
  // What is waited for has been sent off, so that the others can go on meanwhile.
  if (GLDriverLock::isNeeded()) __wrap_glFlush();
  __real_glFinish();
}

TAVREL_GUARDED(void, glReadPixels,
               (GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels)) {
  if (GLDriverLock::isNeeded()) __wrap_glFinish();
  const GLDriverLock lock;
  __real_glReadPixels(x, y, width, height, format, type, pixels);
}

TAVREL_GUARDED(void, glTexImage2D,
               (GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint border,
                GLenum format, GLenum type, const void* pixels)) {
  const GLDriverLock lock;
  __real_glTexImage2D(target, level, internalFormat, width, height, border, format, type, pixels);
}

TAVREL_GUARDED(void, glTexSubImage2D,
               (GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                const void* pixels)) {
  const GLDriverLock lock;
  __real_glTexSubImage2D(target, level, x, y, width, height, format, type, pixels);
}

TAVREL_GUARDED(void, glCopyTexSubImage2D,
               (GLenum target, GLint level, GLint xOffset, GLint yOffset, GLint x, GLint y, GLsizei width,
                GLsizei height)) {
  const GLDriverLock lock;
  __real_glCopyTexSubImage2D(target, level, xOffset, yOffset, x, y, width, height);
}

TAVREL_GUARDED(void, glGenerateMipmap, (GLenum target)) {
  const GLDriverLock lock;
  __real_glGenerateMipmap(target);
}

// What is deleted may still be used by another context, on whose list it is put then.
TAVREL_GUARDED(void, glDeleteTextures, (GLsizei count, const GLuint* names)) {
  const GLDriverLock lock;
  __real_glDeleteTextures(count, names);
}

TAVREL_GUARDED(void, glDeleteFramebuffers, (GLsizei count, const GLuint* names)) {
  const GLDriverLock lock;
  __real_glDeleteFramebuffers(count, names);
}

TAVREL_GUARDED(void, glDeleteRenderbuffers, (GLsizei count, const GLuint* names)) {
  const GLDriverLock lock;
  __real_glDeleteRenderbuffers(count, names);
}

TAVREL_GUARDED(void, glDeleteProgram, (GLuint name)) {
  const GLDriverLock lock;
  __real_glDeleteProgram(name);
}

TAVREL_GUARDED(EGLContext, eglCreateContext,
               (EGLDisplay display, EGLConfig config, EGLContext shareContext, const EGLint* attributes)) {
  const GLDriverLock lock;
  return __real_eglCreateContext(display, config, shareContext, attributes);
}

TAVREL_GUARDED(EGLBoolean, eglDestroyContext, (EGLDisplay display, EGLContext context)) {
  const GLDriverLock lock;
  return __real_eglDestroyContext(display, context);
}

TAVREL_GUARDED(EGLBoolean, eglMakeCurrent, (EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context)) {
  const GLDriverLock lock;  // the context that was current is flushed
  const EGLBoolean isDone = __real_eglMakeCurrent(display, draw, read, context);
  if (isDone == EGL_TRUE && context != EGL_NO_CONTEXT) GLDriverLock::examineDriver();
  return isDone;
}

TAVREL_GUARDED(int, SDL_GL_MakeCurrent, (SDL_Window * window, SDL_GLContext context)) {
  const GLDriverLock lock;
  return __real_SDL_GL_MakeCurrent(window, context);
}

TAVREL_GUARDED(void, SDL_GL_SwapWindow, (SDL_Window * window)) {
  const GLDriverLock lock;
  __real_SDL_GL_SwapWindow(window);
}

// NOLINTEND(bugprone-reserved-identifier)
