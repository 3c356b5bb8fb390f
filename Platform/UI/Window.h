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

class NativeWindow;

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
  ~Window();

  /// As large as the window, always; opaque black at creation.
  const std::shared_ptr<View>& rootView() const { return rootView_; }
  /// Takes the window off the screen. The tree stays, and what draws into it may go on.
  void close();
  bool isOpen() const { return native_ != nullptr; }
  /// Called when somebody asks for the window to be closed; without a handler it closes.
  void setCloseHandler(std::function<void()> handler);
  void setKeyHandler(KeyHandler handler);

  /// In points; the window system may decide for another size. Nothing happens when it is closed.
  void setSize(Size size);
  void setTitle(const std::string& title);
  /// In points; empty when it is closed.
  Size size() const;
  /// Pixels for each point.
  double scale() const;
  /// How many pictures were put on the screen so far.
  std::uint64_t framesShown() const;

 private:
  explicit Window(std::unique_ptr<NativeWindow> native);

  std::unique_ptr<NativeWindow> native_;
  std::shared_ptr<View> rootView_;
};

}  // namespace tavrel
