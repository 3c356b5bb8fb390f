#pragma once

#include <SDL2/SDL.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/UI/TouchDispatcher.h"
#include "Platform/UI/View.h"
#include "Platform/UI/Window.h"

namespace tavrel {

class WindowSystem;

/// An SDL window that shows a view tree. Main thread.
class NativeWindow {
 public:
  static Expected<std::unique_ptr<NativeWindow>> create(WindowSystem& system, const std::string& title, Size size);
  NativeWindow(const NativeWindow&) = delete;
  NativeWindow& operator=(const NativeWindow&) = delete;
  ~NativeWindow();

  const std::shared_ptr<View>& rootView() const { return rootView_; }
  void setCloseHandler(std::function<void()> handler) { closeHandler_ = std::move(handler); }
  void setKeyHandler(Window::KeyHandler handler) { keyHandler_ = std::move(handler); }
  void setSize(Size size);
  void setTitle(const std::string& title);
  Size size() const;
  double scale() const;
  std::uint64_t framesShown() const { return framesShown_; }

  /// Events that name this window. May destroy it.
  void handle(const SDL_Event& event);
  /// Shows the tree when it differs from what is shown.
  void showIfNeeded();
  bool isSeen() const;
  bool hasFocus() const;

 private:
  NativeWindow(WindowSystem& system, SDL_Window* window);
  void handleWindowEvent(const SDL_WindowEvent& event);
  void handleFinger(const SDL_TouchFingerEvent& event);
  void fitRootView();
  void show();

  WindowSystem& system_;
  SDL_Window* window_;
  std::shared_ptr<View> rootView_ = std::make_shared<View>();
  TouchDispatcher touches_{rootView_};
  std::function<void()> closeHandler_;
  Window::KeyHandler keyHandler_;
  std::uint64_t newestPicture_ = 0;  // that was there when the tree was last shown
  std::uint64_t framesShown_ = 0;
  bool wasAnimating_ = false;
};

}  // namespace tavrel
