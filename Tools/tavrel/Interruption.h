#pragma once

namespace tavrel::tool {

/// From its making on, Ctrl-C and SIGTERM ask for the end of the work instead of ending the program.
class Interruption {
 public:
  Interruption();
  bool isAskedFor() const;
};

}  // namespace tavrel::tool
