#pragma once

#include <array>

namespace tavrel::tool {

/// During its lifetime Ctrl-C, SIGTERM and SIGHUP request the end of the work instead of ending the program. A SIGHUP
/// that is ignored, as under nohup, stays ignored.
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
