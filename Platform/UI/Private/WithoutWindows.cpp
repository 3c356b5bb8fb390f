// The windows of a library that was built without them (TAVREL_WITH_SDL=OFF).
#include "Platform/UI/Application.h"
#include "Platform/UI/UIStatus.h"
#include "Platform/UI/Window.h"

namespace tavrel {

Expected<void> Application::startUserInterface() {
  return failure(UIStatus::noWindowSystem,
                 "this library was built without windows: build it with TAVREL_WITH_SDL=ON, or do without a window");
}

Expected<std::shared_ptr<Window>> Window::create(const std::string&, Size) {
  return Application::shared().startUserInterface().map([] { return std::shared_ptr<Window>(); });
}

}  // namespace tavrel
