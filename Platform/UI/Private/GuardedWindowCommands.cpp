// The window system's part of the commands that hold the driver's lock; see GuardedCommands.cpp of Platform/Graphics.
#include <GLES2/gl2.h>
#include <SDL2/SDL.h>

#include <cstddef>

#include "Platform/Graphics/GLDriverLock.h"

namespace {

/// A display that does not answer is waited for here. Mesa would do so under the lock, and the graph with it, and the
/// lock cannot be left out there: its software renderer crashes when another context draws meanwhile. What remains is a
/// display that stops within the millisecond of a command.
void waitForDisplay(SDL_Window* window) {
  if (!tavrel::GLDriverLock::isNeeded()) return;
  std::size_t size = 0;
  SDL_free(SDL_GetWindowICCProfile(window, &size));  // on X11, asks the display each time
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_SDL_GL_MakeCurrent(SDL_Window* window, SDL_GLContext context);
int __wrap_SDL_GL_MakeCurrent(SDL_Window* window, SDL_GLContext context) {
  if (window) waitForDisplay(window);
  const tavrel::GLDriverLock lock;
  return __real_SDL_GL_MakeCurrent(window, context);
}

void __real_SDL_GL_SwapWindow(SDL_Window* window);
void __wrap_SDL_GL_SwapWindow(SDL_Window* window) {
  if (tavrel::GLDriverLock::isNeeded()) glFinish();  // what is left for the lock is to hand the picture over
  waitForDisplay(window);
  const tavrel::GLDriverLock lock;
  __real_SDL_GL_SwapWindow(window);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
