#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/UI/View.h"

namespace tavrel {

/// A window that shows a view tree, through SDL2 and EGL. Main thread, which must run `RunLoop::main()`.
///
/// The tree is composited at the display's rate while it changes. Touches and the primary mouse button become taps for
/// the tree's recognisers. Sizes are in points on displays of any density.
///
///     open ──close, or destroyed──▶ closed
class TAVREL_API Window {
 public:
  /// `key` is SDL's name of the pressed key, such as "Q", "Space" or "Escape".
  using KeyHandler = std::function<void(std::string_view key)>;

  /// Opens a resizable window of `size` points. Fails (`UIStatus`) as `Application::startUserInterface` does, and if
  /// the window system refuses.
  static Expected<std::shared_ptr<Window>> create(const std::string& title, Size size);
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  /// Closes.
  virtual ~Window() = default;

  /// Always has the window's size; initially opaque black.
  const std::shared_ptr<View>& rootView() const { return rootView_; }
  /// Removes the window from the screen. The view tree stays, and may still be drawn into.
  virtual void close() = 0;
  virtual bool isOpen() const = 0;
  /// Called when the user asks to close the window; without a handler it closes.
  virtual void setCloseHandler(std::function<void()> handler) = 0;
  virtual void setKeyHandler(KeyHandler handler) = 0;

  /// In points; the window system may choose another size. Has no effect when closed.
  virtual void setSize(Size size) = 0;
  virtual void setTitle(const std::string& title) = 0;
  /// In points; zero when closed.
  virtual Size size() const = 0;
  /// Pixels per point.
  virtual double scale() const = 0;
  /// Number of frames shown so far.
  virtual std::uint64_t framesShown() const = 0;

 protected:
  Window() = default;

 private:
  const std::shared_ptr<View> rootView_ = std::make_shared<View>();
};

}  // namespace tavrel
