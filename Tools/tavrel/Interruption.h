#pragma once

namespace tavrel::tool {

/// From its making on, Ctrl-C, SIGTERM and SIGHUP ask for the end of the work instead of ending the program. SIGHUP
/// stays without effect where it was, under nohup.
class Interruption {
 public:
  Interruption();
  bool isAskedFor() const;
};

}  // namespace tavrel::tool
