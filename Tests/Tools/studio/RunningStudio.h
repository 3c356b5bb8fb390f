#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Platform/Foundation/Geometry.h"
#include "Support/UIVirtualScreen.h"

namespace tavrel::test {

/// The studio in a window on a virtual screen, driven with mouse and keys and found by the places that
/// it tells of its widgets.
class RunningStudio {
 public:
  static constexpr const char* kTitle = "Tavrel Studio";

  /// `folder` is the person's home; the settings are in it already.
  RunningStudio(const std::string& folder, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment = {});
  RunningStudio(const RunningStudio&) = delete;
  RunningStudio& operator=(const RunningStudio&) = delete;
  ~RunningStudio();

  /// What the window told last.
  nlohmann::json state() const;
  /// Waits up to half a minute.
  bool becomes(const std::function<bool(const nlohmann::json& state)>& isRight) const;
  bool shows(const std::string& widget) const;
  Rect placeOf(const std::string& widget) const;

  /// A pixel of the window as one of the screen.
  Point onScreen(Point point) const;
  bool click(const std::string& widget) const;
  /// Takes hold of a place of the window and lets go of it at another.
  bool drag(Point from, Point to) const;
  static bool press(const std::string& key) { return UIVirtualScreen::xdotool("key " + key); }
  /// How it ended; -1 when it has not after half a minute.
  int exitStatus();

 private:
  std::string stateFile_;
  pid_t process_ = -1;
};

}  // namespace tavrel::test
