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

/// A window on the screen that shows a view tree, on SDL2 and EGL. Main thread, whose `RunLoop` must run.
///
/// The tree is composited at the display's rate, when something in it changed. Fingers and the primary mouse button
/// become taps for the tree's recognisers. On displays of high density points stay points: see `View`.
///
///     open ──close, or destroyed──▶ closed
class TAVREL_API Window {
 public:
  /// `key` names what was pressed: "Q", "Space", "Escape" … (SDL's key names).
  using KeyHandler = std::function<void(std::string_view key)>;

  /// Opens a window of `size` points that people can resize. Fails (`UIStatus`) as `Application::startUserInterface`
  /// does, and when the window system refuses.
  static Expected<std::shared_ptr<Window>> create(const std::string& title, Size size);
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  /// Closes.
  virtual ~Window() = default;

  /// As large as the window, always; opaque black at creation.
  const std::shared_ptr<View>& rootView() const { return rootView_; }
  /// Takes the window off the screen. The tree stays, and what draws into it may go on.
  virtual void close() = 0;
  virtual bool isOpen() const = 0;
  /// Called when somebody asks for the window to be closed; without a handler it closes.
  virtual void setCloseHandler(std::function<void()> handler) = 0;
  virtual void setKeyHandler(KeyHandler handler) = 0;

  /// In points; the window system may decide for another size. Nothing happens when it is closed.
  virtual void setSize(Size size) = 0;
  virtual void setTitle(const std::string& title) = 0;
  /// In points; empty when it is closed.
  virtual Size size() const = 0;
  /// Pixels for each point.
  virtual double scale() const = 0;
  /// How many pictures were put on the screen so far.
  virtual std::uint64_t framesShown() const = 0;

 protected:
  Window() = default;

 private:
  const std::shared_ptr<View> rootView_ = std::make_shared<View>();
};

}  // namespace tavrel
