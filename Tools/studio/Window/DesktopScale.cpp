#include "Window/DesktopScale.h"

#include <algorithm>
#include <cstdlib>

#include "Platform/Foundation/Environment.h"

// The last, as it defines None, Bool, Status and the like.
#include <SDL.h>
#include <SDL_syswm.h>

#ifdef SDL_VIDEO_DRIVER_X11
#include <X11/Xresource.h>
#endif

namespace tavrel::studio {
namespace {

constexpr double kLeast = 1;
constexpr double kMost = 4;

#ifdef SDL_VIDEO_DRIVER_X11
double scaleOfResources(SDL_Window* window) {
  SDL_SysWMinfo info;
  SDL_VERSION(&info.version);
  if (SDL_GetWindowWMInfo(window, &info) != SDL_TRUE || info.subsystem != SDL_SYSWM_X11) return kLeast;
  // The desktop keeps them in a property of the root window; the connection's own copy is from its start.
  const char* const dotsPerInch = XGetDefault(info.info.x11.display, "Xft", "dpi");
  constexpr double kUsual = 96;
  return dotsPerInch ? std::atof(dotsPerInch) / kUsual : kLeast;
}
#else
double scaleOfResources(SDL_Window*) { return kLeast; }
#endif

}  // namespace

double desktopScale(SDL_Window* window) {
  const auto asked = environmentVariable("GDK_SCALE");
  const double scale = asked ? std::atof(asked->data()) : scaleOfResources(window);
  return std::clamp(scale, kLeast, kMost);
}

}  // namespace tavrel::studio
