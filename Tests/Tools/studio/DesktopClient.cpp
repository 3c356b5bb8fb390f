#include "DesktopClient.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>

#include <array>
#include <cstring>

namespace tavrel::test {

struct DesktopClient::Implementation {
  Atom atom(const char* name) const { return XInternAtom(display, name, False); }

  Window windowOf(const std::string& title) const {
    Window ignored = 0;
    Window* children = nullptr;
    unsigned count = 0;
    Window found = 0;
    if (XQueryTree(display, XDefaultRootWindow(display), &ignored, &ignored, &children, &count) == 0) return 0;
    for (unsigned i = 0; i < count; ++i) {
      char* name = nullptr;
      if (XFetchName(display, children[i], &name) != 0 && title == name) found = children[i];
      if (name) XFree(name);
    }
    if (children) XFree(children);
    return found;
  }

  void send(Window target, Atom type, const std::array<long, 5>& values) const {
    XEvent event = {};
    event.xclient.type = ClientMessage;
    event.xclient.window = target;
    event.xclient.message_type = type;
    event.xclient.format = 32;
    std::copy(values.begin(), values.end(), event.xclient.data.l);
    XSendEvent(display, target, False, NoEventMask, &event);
    XFlush(display);
  }

  /// Answers what the target asks until it sends a message of this type; false if none comes within 20 seconds.
  bool waitFor(Atom type, const std::string& uri) const {
    pollfd connection = {XConnectionNumber(display), POLLIN, 0};
    constexpr int kPatience = 20'000;
    while (XPending(display) > 0 || poll(&connection, 1, kPatience) > 0) {
      XEvent event = {};
      XNextEvent(display, &event);
      if (event.type == SelectionRequest) answer(event.xselectionrequest, uri);
      if (event.type == ClientMessage && event.xclient.message_type == type) return true;
    }
    return false;
  }

  void answer(const XSelectionRequestEvent& request, const std::string& uri) const {
    XChangeProperty(display, request.requestor, request.property, request.target, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(uri.data()), static_cast<int>(uri.size()));
    XEvent event = {};
    event.xselection.type = SelectionNotify;
    event.xselection.requestor = request.requestor;
    event.xselection.selection = request.selection;
    event.xselection.target = request.target;
    event.xselection.property = request.property;
    event.xselection.time = request.time;
    XSendEvent(display, request.requestor, False, NoEventMask, &event);
    XFlush(display);
  }

  Display* const display = XOpenDisplay(nullptr);
  const Window own = display ? XCreateSimpleWindow(display, XDefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0) : 0;
};

DesktopClient::DesktopClient() : implementation_(new Implementation) {}

DesktopClient::~DesktopClient() {
  if (implementation_->display) XCloseDisplay(implementation_->display);
  delete implementation_;
}

bool DesktopClient::dropFile(const std::string& title, const std::string& file, int x, int y) {
  const Implementation& desktop = *implementation_;
  const Window target = desktop.display ? desktop.windowOf(title) : 0;
  if (!target) return false;
  const std::string uri = "file://" + file + "\r\n";
  const auto own = static_cast<long>(desktop.own);
  constexpr long kVersion = 5;
  XSetSelectionOwner(desktop.display, desktop.atom("XdndSelection"), desktop.own, CurrentTime);
  desktop.send(target, desktop.atom("XdndEnter"),
               {own, kVersion << 24, static_cast<long>(desktop.atom("text/uri-list")), 0, 0});
  desktop.send(
      target, desktop.atom("XdndPosition"),
      {own, 0, (static_cast<long>(x) << 16) | y, CurrentTime, static_cast<long>(desktop.atom("XdndActionCopy"))});
  if (!desktop.waitFor(desktop.atom("XdndStatus"), uri)) return false;
  desktop.send(target, desktop.atom("XdndDrop"), {own, 0, CurrentTime, 0, 0});
  return desktop.waitFor(desktop.atom("XdndFinished"), uri);
}

bool DesktopClient::closeWindow(const std::string& title) {
  const Implementation& desktop = *implementation_;
  const Window target = desktop.display ? desktop.windowOf(title) : 0;
  if (!target) return false;
  desktop.send(target, desktop.atom("WM_PROTOCOLS"),
               {static_cast<long>(desktop.atom("WM_DELETE_WINDOW")), CurrentTime, 0, 0, 0});
  return true;
}

}  // namespace tavrel::test
