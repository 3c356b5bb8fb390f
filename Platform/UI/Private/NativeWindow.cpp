#include "Platform/UI/Private/NativeWindow.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/Foundation/Finite.h"
#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Graphics/GLDriverLock.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/Private/LayerRenderer.h"
#include "Platform/UI/Private/WindowSystem.h"
#include "Platform/UI/Screen.h"
#include "Platform/UI/UIStatus.h"

namespace tavrel {
namespace {

constexpr TouchDispatcher::Touch kMouse = -1;
constexpr double kMostPoints = 16384;  // of a window's side

Point pointOf(int x, int y) {
  // The middle of the pixel that was clicked.
  return {x + 0.5, y + 0.5};
}

double secondsOf(std::uint32_t milliseconds) { return milliseconds / 1000.0; }

std::uint64_t newestPictureIn(const Layer& layer) {
  std::uint64_t newest = 0;
  if (const auto* drawable = dynamic_cast<const DrawableLayer*>(&layer)) {
    const auto frame = drawable->drawable()->latestFrame();
    if (frame) newest = frame->sequenceNumber();
  }
  for (const auto& sublayer : layer.sublayers()) newest = std::max(newest, newestPictureIn(*sublayer));
  return newest;
}

}  // namespace

Expected<std::shared_ptr<Window>> Window::create(const std::string& title, Size size) {
  const auto system = WindowSystem::start();
  if (!system) return tl::unexpected(system.error());
  if (!(size.width >= 1 && size.height >= 1 && size.width <= kMostPoints && size.height <= kMostPoints)) {
    return failure(UIStatus::invalidSize, fmt::format("no window can have {}×{} points: expected 1 to {} each",
                                                      size.width, size.height, kMostPoints));
  }
  SDL_Window* const window =
      SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, static_cast<int>(size.width),
                       static_cast<int>(size.height), WindowSystem::kWindowFlags | SDL_WINDOW_RESIZABLE);
  if (!window)
    return failure(UIStatus::windowRefused, fmt::format("the window system gives no window: {}", SDL_GetError()));
  return std::make_shared<NativeWindow>(**system, window);
}

NativeWindow::NativeWindow(WindowSystem& system, SDL_Window* window) : system_(system), window_(window) {
  rootView()->setBackgroundColor(Color::black());
  if (system_.makeCurrent(window_)) {
    // Pictures wait for the display on this thread only. Not every display can do that, and where the driver is locked
    // while windows swap the graph would wait as well; the timer keeps the pace then.
    SDL_GL_SetSwapInterval(GLDriverLock::isNeeded() ? 0 : 1);
    system_.clearCurrent();
  }
  fitRootView();
  SDL_ShowWindow(window_);
  system_.add(SDL_GetWindowID(window_), this);
}

void NativeWindow::close() {
  if (!window_) return;
  system_.remove(SDL_GetWindowID(window_));
  SDL_DestroyWindow(std::exchange(window_, nullptr));
}

void NativeWindow::setSize(Size size) {
  if (!window_) return;
  if (!isFinite(size)) return;
  const auto pixels = [](double points) { return static_cast<int>(std::clamp(points, 1.0, kMostPoints)); };
  SDL_SetWindowSize(window_, pixels(size.width), pixels(size.height));
  fitRootView();
}

void NativeWindow::setTitle(const std::string& title) {
  if (window_) SDL_SetWindowTitle(window_, title.c_str());
}

Size NativeWindow::size() const {
  if (!window_) return {};
  int width = 0;
  int height = 0;
  SDL_GetWindowSize(window_, &width, &height);
  return {static_cast<double>(width), static_cast<double>(height)};
}

double NativeWindow::scale() const {
  if (!window_) return 1;
  int pixels = 0;
  SDL_GL_GetDrawableSize(window_, &pixels, nullptr);
  const double points = size().width;
  return pixels > 0 && points > 0 ? pixels / points : 1;
}

bool NativeWindow::isSeen() const {
  return (SDL_GetWindowFlags(window_) & (SDL_WINDOW_MINIMIZED | SDL_WINDOW_HIDDEN)) == 0;
}

bool NativeWindow::hasFocus() const { return (SDL_GetWindowFlags(window_) & SDL_WINDOW_INPUT_FOCUS) != 0; }

void NativeWindow::fitRootView() {
  rootView()->setFrame({{0, 0}, size()});
  const double present = scale();
  if (present != Screen::main().scale()) Screen::main().setScale(present);
  rootView()->setContentScaleFactorOfTree(present);
  rootView()->layer()->setNeedsDisplay();
}

void NativeWindow::handle(const SDL_Event& event) {
  switch (event.type) {
    case SDL_WINDOWEVENT: return handleWindowEvent(event.window);
    case SDL_MOUSEBUTTONDOWN:
      if (event.button.button == SDL_BUTTON_LEFT) touches_.touchBegan(kMouse, pointOf(event.button.x, event.button.y));
      return;
    case SDL_MOUSEMOTION: return touches_.touchMoved(kMouse, pointOf(event.motion.x, event.motion.y));
    case SDL_MOUSEBUTTONUP:
      if (event.button.button != SDL_BUTTON_LEFT) return;
      return touches_.touchEnded(kMouse, pointOf(event.button.x, event.button.y), secondsOf(event.button.timestamp));
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP: return handleFinger(event.tfinger);
    case SDL_KEYDOWN:
      if (keyHandler_ && event.key.repeat == 0) {
        const auto handler = keyHandler_;  // may close the window
        handler(SDL_GetKeyName(event.key.keysym.sym));
      }
      return;
    default: return;
  }
}

void NativeWindow::handleFinger(const SDL_TouchFingerEvent& event) {
  const Point point = {event.x * size().width, event.y * size().height};
  if (event.type == SDL_FINGERDOWN) touches_.touchBegan(event.fingerId, point);
  if (event.type == SDL_FINGERMOTION) touches_.touchMoved(event.fingerId, point);
  if (event.type == SDL_FINGERUP) touches_.touchEnded(event.fingerId, point, secondsOf(event.timestamp));
}

void NativeWindow::handleWindowEvent(const SDL_WindowEvent& event) {
  switch (event.event) {
    case SDL_WINDOWEVENT_SIZE_CHANGED: return fitRootView();
    case SDL_WINDOWEVENT_EXPOSED:
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_RESTORED: return rootView()->layer()->setNeedsDisplay();
    case SDL_WINDOWEVENT_FOCUS_LOST: return touches_.cancelAll();
    case SDL_WINDOWEVENT_CLOSE: {
      const auto handler = closeHandler_;  // may end the window
      return handler ? handler() : close();
    }
    default: return;
  }
}

void NativeWindow::showIfNeeded() {
  if (!isSeen()) return;
  const bool isAnimating = rootView()->layer()->isAnimating();
  rootView()->layoutIfNeeded();
  const bool isAsked = rootView()->layer()->takeNeedsDisplay();
  // Asked before drawing: what is presented meanwhile is noticed the next time.
  const std::uint64_t newest = newestPictureIn(*rootView()->layer());
  const bool hasNewPicture = newest > std::exchange(newestPicture_, newest);
  // Once more after an animation's end, to show the end.
  if (std::exchange(wasAnimating_, isAnimating) || isAsked || isAnimating || hasNewPicture) show();
}

void NativeWindow::show() {
  // Layout may have closed it.
  if (!window_ || !system_.makeCurrent(window_)) return;
  if (LayerRenderer* const renderer = system_.renderer()) {
    LayerRenderer::Target target;
    SDL_GL_GetDrawableSize(window_, &target.width, &target.height);
    target.scale = scale();
    target.time = Layer::currentTime();
    target.background = Color::black();
    renderer->draw(*rootView()->layer(), target);
    SDL_GL_SwapWindow(window_);
    ++framesShown_;
  }
  system_.clearCurrent();
}

}  // namespace tavrel
