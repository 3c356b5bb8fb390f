// The window system's part of the commands that hold the driver's lock; see GuardedCommands.cpp of Platform/Graphics.
#include <GLES2/gl2.h>
#include <SDL2/SDL.h>

#include "Platform/Graphics/GLDriverLock.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_SDL_GL_MakeCurrent(SDL_Window* window, SDL_GLContext context);
int __wrap_SDL_GL_MakeCurrent(SDL_Window* window, SDL_GLContext context) {
  const tavrel::GLDriverLock lock;
  return __real_SDL_GL_MakeCurrent(window, context);
}

void __real_SDL_GL_SwapWindow(SDL_Window* window);
void __wrap_SDL_GL_SwapWindow(SDL_Window* window) {
  if (tavrel::GLDriverLock::isNeeded()) glFinish();  // what is left for the lock is to hand the picture over
  const tavrel::GLDriverLock lock;
  __real_SDL_GL_SwapWindow(window);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
