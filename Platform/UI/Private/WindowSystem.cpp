#include "Platform/UI/Private/WindowSystem.h"

#include <EGL/egl.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/Environment.h"
#include "Platform/Graphics/GLContext.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/UI/Application.h"
#include "Platform/UI/Private/NativeWindow.h"
#include "Platform/UI/Screen.h"
#include "Platform/UI/UIStatus.h"

namespace tavrel {
namespace {

WindowSystem* instance = nullptr;

struct Hint {
  const char* name;
  const char* value;
};

constexpr Hint kHints[] = {
    {SDL_HINT_VIDEO_X11_FORCE_EGL, "1"},  // GL contexts of other threads share with EGL contexts only
    {SDL_HINT_OPENGL_ES_DRIVER, "1"},        {SDL_HINT_NO_SIGNAL_HANDLERS, "1"},  // signals belong to the program
    {SDL_HINT_TOUCH_MOUSE_EVENTS, "0"},                                           // a finger is not a mouse as well
    {SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1"}, {SDL_HINT_QUIT_ON_LAST_WINDOW_CLOSE, "0"},
};

struct Attribute {
  SDL_GLattr name;
  int value;
};

constexpr Attribute kAttributes[] = {
    {SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_ES},
    {SDL_GL_CONTEXT_MAJOR_VERSION, 2},
    {SDL_GL_CONTEXT_MINOR_VERSION, 0},
    {SDL_GL_RED_SIZE, 8},
    {SDL_GL_GREEN_SIZE, 8},
    {SDL_GL_BLUE_SIZE, 8},
    {SDL_GL_DOUBLEBUFFER, 1},
    {SDL_GL_DEPTH_SIZE, 0},
};

/// The environment variable; empty when it is not set.
std::string_view variable(const char* name) { return environmentVariable(name).value_or(""); }

/// The window systems that the session names, for SDL to try in this order. Left to itself SDL would end up with a
/// driver whose windows nobody can see.
std::string namedVideoDrivers() {
  if (const auto asked = variable("SDL_VIDEODRIVER"); !asked.empty()) return std::string(asked);
  std::string drivers;
  for (const auto& [name, driver] : {std::pair("DISPLAY", "x11"), std::pair("WAYLAND_DISPLAY", "wayland")}) {
    if (variable(name).empty()) continue;
    if (!drivers.empty()) drivers += ',';
    drivers += driver;
  }
  return drivers;
}

std::uint32_t windowOf(const SDL_Event& event) {
  switch (event.type) {
    case SDL_WINDOWEVENT: return event.window.windowID;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP: return event.button.windowID;
    case SDL_MOUSEMOTION: return event.motion.windowID;
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP: return event.tfinger.windowID;
    case SDL_KEYDOWN: return event.key.windowID;
    default: return 0;
  }
}

}  // namespace

Expected<void> Application::startUserInterface() {
  return WindowSystem::start().map([](WindowSystem*) {});
}

WindowSystem* WindowSystem::started() { return instance; }

Expected<WindowSystem*> WindowSystem::start() {
  if (instance) return instance;
  std::unique_ptr<WindowSystem> system(new WindowSystem);
  if (const auto connected = system->connect(); !connected) return tl::unexpected(connected.error());
  instance = system.release();
  readScreen();
  const auto interval = std::chrono::duration<double>(1 / Screen::main().framesPerSecond());
  instance->timer_ = std::make_unique<DispatchTimer>(
      DispatchQueue::main(), std::chrono::duration_cast<std::chrono::nanoseconds>(interval), [] { instance->tick(); });
  Application::shared().observeSystem();
  return instance;
}

Expected<void> WindowSystem::connect() {
  if (variable("TAVREL_DISPLAY") == "headless") {
    return failure(UIStatus::noWindowSystem,
                   "TAVREL_DISPLAY=headless forbids windows: unset it, or do without a window");
  }
  if (GraphicsDisplay::isChosen() && GraphicsDisplay::shared().isHeadless()) {
    return failure(UIStatus::headlessInUse,
                   "GL already uses a headless display, which windows cannot show: create the window, or call "
                   "Application::startUserInterface, before the first use of the graph");
  }
  const std::string drivers = namedVideoDrivers();
  for (const Hint& hint : kHints) SDL_SetHint(hint.name, hint.value);
  SDL_SetHint(SDL_HINT_VIDEODRIVER, drivers.c_str());
  SDL_SetMainReady();
  if (drivers.empty() || SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
    return failure(
        UIStatus::noWindowSystem,
        fmt::format("no window system can be reached{}: DISPLAY or WAYLAND_DISPLAY must name a running one, or do "
                    "without a window",
                    drivers.empty() ? "" : fmt::format(" ({}: {})", drivers, SDL_GetError())));
  }
  auto opened = openContext();
  if (opened) return {};
  // SDL ends its EGL display with the video, which is right here: nobody else knows it yet.
  if (context_) SDL_GL_DeleteContext(context_);
  if (anchorWindow_) SDL_DestroyWindow(anchorWindow_);
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
  return opened;
}

Expected<void> WindowSystem::openContext() {
  for (const Attribute& attribute : kAttributes) SDL_GL_SetAttribute(attribute.name, attribute.value);
  GLContext::clearCurrent();
  anchorWindow_ = SDL_CreateWindow("", 0, 0, 1, 1, kWindowFlags);
  if (anchorWindow_) context_ = SDL_GL_CreateContext(anchorWindow_);
  if (!context_) {
    return failure(UIStatus::graphicsRefused,
                   fmt::format("the window system \"{}\" gives no OpenGL ES 2.0: {}",
                               SDL_GetCurrentVideoDriver() ? SDL_GetCurrentVideoDriver() : "none", SDL_GetError()));
  }
  EGLDisplay const display = eglGetCurrentDisplay();
  EGLContext const context = eglGetCurrentContext();
  clearCurrent();
  if (display == EGL_NO_DISPLAY || !GraphicsDisplay::adopt(display, context)) {
    return failure(
        UIStatus::graphicsRefused,
        fmt::format("the window system \"{}\" gives no EGL display that GL could share", SDL_GetCurrentVideoDriver()));
  }
  return {};
}

void WindowSystem::readScreen() {
  SDL_DisplayMode mode{};
  if (SDL_GetCurrentDisplayMode(0, &mode) != 0) return;
  Screen::main().setMode({static_cast<double>(mode.w), static_cast<double>(mode.h)}, mode.refresh_rate);
}

void WindowSystem::add(std::uint32_t identifier, NativeWindow* window) {
  windows_[identifier] = window;
  updateApplicationState();
}

void WindowSystem::remove(std::uint32_t identifier) {
  windows_.erase(identifier);
  updateApplicationState();
}

bool WindowSystem::makeCurrent(SDL_Window* window) {
  GLContext::clearCurrent();
  return SDL_GL_MakeCurrent(window, context_) == 0;
}

void WindowSystem::clearCurrent() {
  // Also so that SDL never takes a context for current that GLContext replaced meanwhile.
  SDL_GL_MakeCurrent(nullptr, nullptr);
}

LayerRenderer* WindowSystem::renderer() {
  if (renderer_) return renderer_.get();
  auto created = LayerRenderer::create();
  if (!created) {
    ConsoleLog::write("{}", created.error().description);
    return nullptr;
  }
  renderer_ = std::move(*created);
  return renderer_.get();
}

void WindowSystem::tick() {
  SDL_Event event;
  while (SDL_PollEvent(&event) != 0) handle(event);
  std::vector<std::uint32_t> identifiers;
  for (const auto& [identifier, window] : windows_) identifiers.push_back(identifier);
  for (const std::uint32_t identifier : identifiers) {
    const auto window = windows_.find(identifier);  // layout may close windows
    if (window != windows_.end()) window->second->showIfNeeded();
  }
}

void WindowSystem::handle(const SDL_Event& event) {
  if (event.type == SDL_APP_LOWMEMORY) Application::shared().receiveMemoryWarning();
  if (event.type == SDL_APP_TERMINATING) Application::shared().terminate();
  const auto window = windows_.find(windowOf(event));
  if (window != windows_.end()) window->second->handle(event);
  if (event.type == SDL_WINDOWEVENT) updateApplicationState();
}

void WindowSystem::updateApplicationState() {
  const auto any = [this](bool (NativeWindow::*question)() const) {
    return std::any_of(windows_.begin(), windows_.end(),
                       [&](const auto& entry) { return (entry.second->*question)(); });
  };
  ApplicationState state = ApplicationState::inactive;
  if (windows_.empty() || any(&NativeWindow::hasFocus)) {
    state = ApplicationState::active;
  } else if (!any(&NativeWindow::isSeen)) {
    state = ApplicationState::background;
  }
  Application::shared().setState(state);
}

}  // namespace tavrel
