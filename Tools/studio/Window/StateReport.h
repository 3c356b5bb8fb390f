#pragma once

#include <deque>
#include <filesystem>
#include <string>

#include "Model/Layout.h"
#include "Model/Studio.h"

namespace tavrel::studio {

/// For programs that drive the window: with `TAVREL_STUDIO_STATE=FILE`, what the window shows, as JSON, after each
/// drawing that shows something else. The file is replaced at once, so that a reader never sees a part. Main thread.
class StateReport {
 public:
  StateReport();

  bool isOn() const { return !file_.empty(); }
  /// When the window was drawn, and what its panels cost the main thread.
  void notePanels(double drawn, double seconds);
  double drawnBefore() const { return drawnBefore_; }
  /// `window` is where the window lies on the screen, in points.
  void write(Studio& studio, const Layout& layout, const Rect& window);

 private:
  std::filesystem::path file_;
  std::string written_;
  double drawnBefore_ = 0;
  std::deque<double> panelTimes_;
  std::uint64_t drawings_ = 0;
};

}  // namespace tavrel::studio
