// The windows of a library that was built without them (TAVREL_WITH_SDL=OFF).
#include "Platform/UI/Private/UIFailure.h"
#include "Platform/UI/Private/UserInterface.h"
#include "Platform/UI/Window.h"

namespace tavrel {

class NativeWindow {};

Expected<void> startUserInterface() {
  return uiFailure(UIStatus::noWindowSystem,
                   "this library was built without windows: build it with TAVREL_WITH_SDL=ON, or do without a window");
}

Expected<std::shared_ptr<Window>> Window::create(const std::string&, Size) {
  return startUserInterface().map([] { return std::shared_ptr<Window>(); });
}

Window::~Window() = default;
void Window::close() {}
void Window::setCloseHandler(std::function<void()>) {}
void Window::setKeyHandler(KeyHandler) {}
void Window::setSize(Size) {}
void Window::setTitle(const std::string&) {}
Size Window::size() const { return {}; }
double Window::scale() const { return 1; }
std::uint64_t Window::framesShown() const { return 0; }

}  // namespace tavrel
