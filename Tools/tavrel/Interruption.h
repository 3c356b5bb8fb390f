#pragma once

#include <array>

namespace tavrel::tool {

/// As long as it lives, Ctrl-C, SIGTERM and SIGHUP ask for the end of the work instead of ending the program. SIGHUP
/// stays without effect where it was, under nohup.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  bool isAskedFor() const;

 private:
  std::array<void (*)(int), 3> before_{};
};

}  // namespace tavrel::tool
