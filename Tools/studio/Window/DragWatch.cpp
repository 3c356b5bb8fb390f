#include "Window/DragWatch.h"

// The last, as it defines None, Bool, Status and the like.
#include <SDL_syswm.h>

namespace tavrel::studio {
namespace {

#ifdef SDL_VIDEO_DRIVER_X11
std::optional<Point> placeToldBy(const SDL_SysWMmsg& message) {
  if (message.subsystem != SDL_SYSWM_X11 || message.msg.x11.event.type != ClientMessage) return {};
  const XClientMessageEvent& told = message.msg.x11.event.xclient;
  if (told.message_type != XInternAtom(told.display, "XdndPosition", True)) return {};
  const long packed = told.data.l[2];
  return Point{static_cast<double>((packed >> 16) & 0xFFFF), static_cast<double>(packed & 0xFFFF)};
}
#else
std::optional<Point> placeToldBy(const SDL_SysWMmsg&) { return {}; }
#endif

}  // namespace

// SDL tells no place with a drop, and keeps the mouse's from before when a program has moved the pointer.
DragWatch::DragWatch() {
  const auto listen = [](void* told, SDL_Event* event) {
    if (event->type != SDL_SYSWMEVENT) return 1;
    if (const auto place = placeToldBy(*event->syswm.msg)) *static_cast<std::optional<Point>*>(told) = place;
    return 0;
  };
  SDL_SetEventFilter(listen, &told_);
  SDL_EventState(SDL_SYSWMEVENT, SDL_ENABLE);
}

DragWatch::~DragWatch() {
  SDL_EventState(SDL_SYSWMEVENT, SDL_DISABLE);
  SDL_SetEventFilter(nullptr, nullptr);
}

Point DragWatch::place() const {
  if (told_) return *told_;
  int x = 0;
  int y = 0;
  SDL_GetGlobalMouseState(&x, &y);
  return {static_cast<double>(x), static_cast<double>(y)};
}

}  // namespace tavrel::studio
