#pragma once

#include <SDL.h>

#include <memory>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// The studio's window, and the GL context that draws into it, with which the library's contexts share their textures.
/// Main thread.
class StudioWindow {
 public:
  /// Opens a window of `size` points. To be called before the library first uses GL. Fails without a display.
  static Expected<std::unique_ptr<StudioWindow>> open(const std::string& title, Size size);
  StudioWindow(const StudioWindow&) = delete;
  StudioWindow& operator=(const StudioWindow&) = delete;
  ~StudioWindow();

  SDL_Window* native() const { return window_; }
  /// In points, in which the mouse's position is told.
  Size size() const;
  Size sizeInPixels() const;
  /// Of its upper left corner on the screen, in points.
  Point position() const;
  /// How much larger than on a usual display things have to be drawn: in pixels.
  double scale() const;
  bool isSeen() const;
  void toggleFullScreen();

  /// Makes the context current; false if it cannot be. The library may have used the thread's context meanwhile.
  bool beginDrawing();
  /// Shows what was drawn.
  void endDrawing();

 private:
  StudioWindow() = default;

  SDL_Window* window_ = nullptr;
  SDL_GLContext context_ = nullptr;
};

}  // namespace tavrel::studio
