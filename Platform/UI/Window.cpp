#include "Platform/UI/Window.h"

#include <utility>

#include "Platform/UI/Private/NativeWindow.h"
#include "Platform/UI/Private/WindowSystem.h"

namespace tavrel {

Expected<std::shared_ptr<Window>> Window::create(const std::string& title, Size size) {
  auto system = WindowSystem::start();
  if (!system) return tl::unexpected(system.error());
  auto native = NativeWindow::create(**system, title, size);
  if (!native) return tl::unexpected(native.error());
  std::shared_ptr<Window> window(new Window(std::move(*native)));
  window->setCloseHandler({});
  return window;
}

Window::Window(std::unique_ptr<NativeWindow> native) : native_(std::move(native)), rootView_(native_->rootView()) {}

Window::~Window() = default;

void Window::close() { native_.reset(); }

void Window::setCloseHandler(std::function<void()> handler) {
  if (!handler) handler = [this] { close(); };
  if (native_) native_->setCloseHandler(std::move(handler));
}

void Window::setKeyHandler(KeyHandler handler) {
  if (native_) native_->setKeyHandler(std::move(handler));
}

void Window::setSize(Size size) {
  if (native_) native_->setSize(size);
}

void Window::setTitle(const std::string& title) {
  if (native_) native_->setTitle(title);
}

Size Window::size() const { return native_ ? native_->size() : Size{}; }

double Window::scale() const { return native_ ? native_->scale() : 1; }

std::uint64_t Window::framesShown() const { return native_ ? native_->framesShown() : 0; }

}  // namespace tavrel
