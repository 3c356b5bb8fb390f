#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {

/// An X server without a monitor (Xvfb), 24 bits deep, under a display number that it finds free and that `DISPLAY`
/// names while the object lives.
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
  /// Runs xdotool with these arguments, waits for it up to 20 seconds, and says whether it succeeded.
  static bool xdotool(const std::string& arguments);

 private:
  void setVariable(const char* name, const char* value);

  const int width_;
  const int height_;
  pid_t process_ = -1;
  std::string failure_;
  std::map<std::string, std::optional<std::string>> earlierVariables_;
};

}  // namespace tavrel::test
