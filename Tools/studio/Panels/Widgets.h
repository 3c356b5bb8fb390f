#pragma once

#include <imgui.h>

#include <map>
#include <string>
#include <vector>

#include "Platform/Foundation/Geometry.h"

namespace tavrel::studio {

/// Where the widgets of the latest picture of the window are, in pixels; for programs that drive the window. By name,
/// such as "Record" or "Beauty". Main thread.
class WidgetMap {
 public:
  static WidgetMap& shared();

  void clear() { places_.clear(); }
  /// The widget just drawn, which is left out where it cannot be seen.
  void noteLast(const std::string& name);
  void note(const std::string& name, const Rect& place) { places_[name] = place; }
  const std::map<std::string, Rect>& places() const { return places_; }

 private:
  std::map<std::string, Rect> places_;
};

// ImGui's widgets under the names by which they are found. A name may end in "##" and what tells it from others.

/// `key` is shown beside the label when it is not empty.
bool button(const std::string& name, const char* key = "", bool isEnabled = true);
bool smallButton(const std::string& name, const char* hint);
bool checkbox(const std::string& name, bool& value);
bool slider(const std::string& name, double& value, double least, double most, const char* format = "%.2f");
/// A line of text to be edited; true when it is done.
bool textField(const std::string& name, std::string& value);
/// A list to unfold; true when another entry is chosen. `shown` stands for a choice that is not in the list.
bool choice(const std::string& name, const std::vector<std::string>& entries, int& index,
            const std::string& shown = {});
void hint(const char* text);

ImVec2 pixels(Point point);

}  // namespace tavrel::studio
