#include "Window/StudioWindow.h"

#include <GLES2/gl2.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "Platform/Foundation/Environment.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Window/DesktopScale.h"

namespace tavrel::studio {
namespace {

constexpr std::pair<const char*, const char*> kHints[] = {
    {SDL_HINT_VIDEO_X11_FORCE_EGL, "1"},  // the library's contexts share with EGL contexts only
    {SDL_HINT_OPENGL_ES_DRIVER, "1"},         {SDL_HINT_NO_SIGNAL_HANDLERS, "1"},
    {SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "0"},  // not while somebody films
    {SDL_HINT_APP_NAME, "Tavrel Studio"},     {SDL_HINT_VIDEO_X11_NET_WM_BYPASS_COMPOSITOR, "0"},
    {SDL_HINT_MOUSE_FOCUS_CLICKTHROUGH, "1"},
};

constexpr std::pair<SDL_GLattr, int> kAttributes[] = {
    {SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_ES},
    {SDL_GL_CONTEXT_MAJOR_VERSION, 2},
    {SDL_GL_CONTEXT_MINOR_VERSION, 0},
    {SDL_GL_DOUBLEBUFFER, 1},
    {SDL_GL_DEPTH_SIZE, 0},
};

tl::unexpected<Error> sdlFailure(const char* what) {
  return failure("studio", 2, fmt::format("{}: {}", what, SDL_GetError()));
}

/// By which desktops find the program's entry, and its icon; see Desktop/.
constexpr const char* kDesktopName = "org.tavrelcapturebase.Studio";

bool isVariableSet(const char* name) { return !environmentVariable(name).value_or("").empty(); }

}  // namespace

Expected<std::unique_ptr<StudioWindow>> StudioWindow::open(const std::string& title, Size size) {
  for (const auto& [name, value] : kHints) SDL_SetHint(name, value);
  // Left to itself, SDL would end up with a driver whose windows nobody can see.
  if (!isVariableSet("DISPLAY") && !isVariableSet("WAYLAND_DISPLAY") && !isVariableSet("SDL_VIDEODRIVER")) {
    return failure("studio", 2, "there is no display: DISPLAY or WAYLAND_DISPLAY must name a running one");
  }
  for (const char* name : {"SDL_VIDEO_X11_WMCLASS", "SDL_VIDEO_WAYLAND_WMCLASS"}) {
    setenv(name, kDesktopName, 0);  // NOLINT(concurrency-mt-unsafe): SDL looks nowhere else, and no thread runs yet
  }
  SDL_SetMainReady();
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) return sdlFailure("no display can be reached");
  for (const auto& [name, value] : kAttributes) SDL_GL_SetAttribute(name, value);
  std::unique_ptr<StudioWindow> window(new StudioWindow);
  constexpr Uint32 kFlags = SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI;
  window->window_ = SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                                     static_cast<int>(size.width), static_cast<int>(size.height), kFlags);
  if (!window->window_) return sdlFailure("the display gives no window");
  SDL_SetWindowMinimumSize(window->window_, 640, 400);
  window->context_ = SDL_GL_CreateContext(window->window_);
  if (!window->context_) return sdlFailure("the display gives no OpenGL ES 2.0");
  if (!GraphicsDisplay::adoptCurrent()) {
    return failure("studio", 2,
                   "the display gives no EGL context for the library to share; TAVREL_DISPLAY must not be headless");
  }
  GLDriverLock::examineDriver();
  // Where the driver is locked while windows swap the graph would wait for the display as well.
  SDL_GL_SetSwapInterval(GLDriverLock::isNeeded() ? 0 : 1);
  SDL_EventState(SDL_DROPFILE, SDL_ENABLE);
  return window;
}

StudioWindow::~StudioWindow() {
  SDL_GL_MakeCurrent(nullptr, nullptr);
  // The context stays, as do those of other threads that share with it.
  if (window_) SDL_DestroyWindow(window_);
}

Size StudioWindow::size() const {
  int width = 0;
  int height = 0;
  SDL_GetWindowSize(window_, &width, &height);
  return {static_cast<double>(width), static_cast<double>(height)};
}

Size StudioWindow::sizeInPixels() const {
  int width = 0;
  int height = 0;
  SDL_GL_GetDrawableSize(window_, &width, &height);
  return {static_cast<double>(width), static_cast<double>(height)};
}

Point StudioWindow::position() const {
  int x = 0;
  int y = 0;
  SDL_GetWindowPosition(window_, &x, &y);
  return {static_cast<double>(x), static_cast<double>(y)};
}

double StudioWindow::scale() const {
  const double pixelsPerPoint = sizeInPixels().width / std::max(1.0, size().width);
  // X11 has no points: there the desktop says by how much programs are to enlarge.
  return pixelsPerPoint > 1.01 ? pixelsPerPoint : desktopScale(window_);
}

bool StudioWindow::isSeen() const {
  return (SDL_GetWindowFlags(window_) & (SDL_WINDOW_MINIMIZED | SDL_WINDOW_HIDDEN)) == 0;
}

void StudioWindow::toggleFullScreen() {
  const bool isFull = (SDL_GetWindowFlags(window_) & SDL_WINDOW_FULLSCREEN_DESKTOP) != 0;
  SDL_SetWindowFullscreen(window_, isFull ? 0 : SDL_WINDOW_FULLSCREEN_DESKTOP);
}

bool StudioWindow::beginDrawing() {
  const GLDriverLock lock;
  GLContext::clearCurrent();
  return SDL_GL_MakeCurrent(window_, context_) == 0;
}

void StudioWindow::endDrawing() {
  if (GLDriverLock::isNeeded()) {
    // Drawn outside the lock, so that the graph can go on meanwhile.
    {
      const GLDriverLock lock;
      glFlush();
    }
    glFinish();
  }
  const GLDriverLock lock;
  SDL_GL_SwapWindow(window_);
  // So that SDL never takes its context for current when the library used another one meanwhile.
  SDL_GL_MakeCurrent(nullptr, nullptr);
}

}  // namespace tavrel::studio
