#pragma once

#include <SDL2/SDL.h>

#include <cstdint>
#include <map>
#include <memory>

#include "Platform/Dispatch/DispatchTimer.h"
#include "Platform/Foundation/Error.h"
#include "Platform/UI/Private/LayerRenderer.h"

namespace tavrel {

class NativeWindow;

/// SDL's video: the connection to the window system, the GL context that fills windows, and the events. Main thread;
/// lives until the process ends, because GL contexts of other threads stand on its display.
class WindowSystem {
 public:
  /// Connects at the first call; asks again after a failure.
  static Expected<WindowSystem*> start();
  /// nullptr before a successful `start`.
  static WindowSystem* started();

  /// Attributes of every window.
  static constexpr std::uint32_t kWindowFlags = SDL_WINDOW_OPENGL | SDL_WINDOW_HIDDEN | SDL_WINDOW_ALLOW_HIGHDPI;

  void add(std::uint32_t identifier, NativeWindow* window);
  void remove(std::uint32_t identifier);

  /// Makes the windows' context current with `window` as what it draws into.
  bool makeCurrent(SDL_Window* window);
  void clearCurrent();
  /// For use after `makeCurrent`; nullptr, with the reason in the console log, when the driver refuses its shaders.
  LayerRenderer* renderer();

 private:
  WindowSystem() = default;
  Expected<void> connect();
  Expected<void> openContext();
  static void readScreen();

  void tick();
  void handle(const SDL_Event& event);
  void updateApplicationState();

  SDL_Window* anchorWindow_ = nullptr;
  SDL_GLContext context_ = nullptr;
  std::unique_ptr<LayerRenderer> renderer_;
  std::map<std::uint32_t, NativeWindow*> windows_;
  std::unique_ptr<DispatchTimer> timer_;
};

}  // namespace tavrel
