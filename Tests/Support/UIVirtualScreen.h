#pragma once

#include <sys/types.h>

#include <string>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {

/// An X server without a monitor (Xvfb), 24 bits deep, that `DISPLAY` names from then on. Ends with the object.
class UIVirtualScreen {
 public:
  UIVirtualScreen(int width, int height);
  UIVirtualScreen(const UIVirtualScreen&) = delete;
  UIVirtualScreen& operator=(const UIVirtualScreen&) = delete;
  ~UIVirtualScreen();

  /// Empty when the server runs; else why not.
  const std::string& failure() const { return failure_; }

  /// What the screen shows.
  Picture screenshot() const;
  /// Runs xdotool with these arguments, waits for it, and says whether it succeeded.
  static bool xdotool(const std::string& arguments);

 private:
  const int width_;
  const int height_;
  pid_t process_ = -1;
  std::string failure_;
};

}  // namespace tavrel::test
