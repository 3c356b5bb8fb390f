#pragma once

#include <SDL.h>

#include <array>
#include <deque>
#include <string>

struct ImGuiIO;

namespace tavrel::studio {

/// Hands a window's events to the panels, in their order and one press or release for each time the panels are drawn,
/// so that none is missed and each is seen where it happened. Main thread.
class PanelInput {
 public:
  /// Connects keys and the clipboard; `io` must outlive this.
  explicit PanelInput(ImGuiIO& io);
  PanelInput(const PanelInput&) = delete;
  PanelInput& operator=(const PanelInput&) = delete;
  ~PanelInput();

  void add(const SDL_Event& event) { events_.push_back(event); }
  /// Hands over up to the next press or release. Positions become pixels, of which a point has `pixelsPerPoint`.
  void advance(double pixelsPerPoint);
  /// Whether something is still to be handed over.
  bool isWaiting() const { return !events_.empty(); }
  /// Shows the mouse pointer that the panels ask for.
  void showPointer();

 private:
  /// True for a press or release.
  bool handle(const SDL_Event& event, double pixelsPerPoint);
  bool handleKey(const SDL_KeyboardEvent& event);
  bool handleButton(const SDL_MouseButtonEvent& event, double pixelsPerPoint);

  ImGuiIO& io_;
  std::deque<SDL_Event> events_;
  std::string clipboard_;
  std::array<SDL_Cursor*, SDL_NUM_SYSTEM_CURSORS> pointers_ = {};
};

}  // namespace tavrel::studio
