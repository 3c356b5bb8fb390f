#pragma once

#include <string>

namespace tavrel::test {

/// What a desktop's own programs do to a window of another program. On the display that DISPLAY names.
class DesktopClient {
 public:
  DesktopClient();
  DesktopClient(const DesktopClient&) = delete;
  DesktopClient& operator=(const DesktopClient&) = delete;
  ~DesktopClient();

  /// Lets go of a file over the window of this title, at a place of the screen, as a file manager does. True when the
  /// window has taken it.
  bool dropFile(const std::string& title, const std::string& file, int x, int y);
  /// Asks the window to close, as a click on its frame does.
  bool closeWindow(const std::string& title);

 private:
  struct Implementation;
  Implementation* const implementation_;
};

}  // namespace tavrel::test
