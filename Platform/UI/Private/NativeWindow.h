#pragma once

#include <SDL2/SDL.h>

#include <cstdint>
#include <functional>
#include <string>

#include "Platform/UI/TouchDispatcher.h"
#include "Platform/UI/Window.h"

namespace tavrel {

class WindowSystem;

/// An SDL window that shows a view tree. Main thread.
class NativeWindow : public Window {
 public:
  NativeWindow(WindowSystem& system, SDL_Window* window);
  ~NativeWindow() override { NativeWindow::close(); }

  void close() override;
  bool isOpen() const override { return window_ != nullptr; }
  void setCloseHandler(std::function<void()> handler) override { closeHandler_ = std::move(handler); }
  void setKeyHandler(KeyHandler handler) override { keyHandler_ = std::move(handler); }
  void setSize(Size size) override;
  void setTitle(const std::string& title) override;
  Size size() const override;
  double scale() const override;
  std::uint64_t framesShown() const override { return framesShown_; }

  /// Events that name this window. May destroy it.
  void handle(const SDL_Event& event);
  /// Shows the tree when it differs from what is shown.
  void showIfNeeded();
  bool isSeen() const;
  bool hasFocus() const;

 private:
  void handleWindowEvent(const SDL_WindowEvent& event);
  void handleFinger(const SDL_TouchFingerEvent& event);
  void fitRootView();
  void show();

  WindowSystem& system_;
  SDL_Window* window_;  // nullptr when it is closed
  TouchDispatcher touches_{rootView()};
  std::function<void()> closeHandler_;
  KeyHandler keyHandler_;
  std::uint64_t newestPicture_ = 0;  // that was there when the tree was last shown
  std::uint64_t framesShown_ = 0;
  bool wasAnimating_ = false;
};

}  // namespace tavrel
