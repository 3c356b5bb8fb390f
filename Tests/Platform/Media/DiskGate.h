#pragma once

#include <chrono>

namespace tavrel::test {

/// While one is there and closed, no write to a regular file, of this whole program, returns.
class DiskGate {
 public:
  DiskGate();
  DiskGate(const DiskGate&) = delete;
  DiskGate& operator=(const DiskGate&) = delete;
  ~DiskGate() { open(); }

  void open();
  /// Waits until somebody waits for the disk; false when nobody does for 20 s.
  static bool isStoodBefore();
};

/// While one is there, every write to a regular file takes that much longer.
class DiskStall {
 public:
  explicit DiskStall(std::chrono::milliseconds time);
  DiskStall(const DiskStall&) = delete;
  DiskStall& operator=(const DiskStall&) = delete;
  ~DiskStall();
};

}  // namespace tavrel::test
