#pragma once

#include <string>
#include <vector>

namespace tavrel::benchmarks {

/// What the process holds.
struct Holdings {
  double at = 0;  ///< seconds, of whatever time is measured
  double residentMiB = 0;
  double allocatedMiB = 0;  ///< in use, as the allocator counts it: without what it keeps or cannot give back
  int threads = 0;
  int descriptors = 0;

  static Holdings now(double at);
};

/// The holdings in the course of a run, and the judgement on them.
class HoldingsCourse {
 public:
  /// The first quarter of `total` does not count.
  HoldingsCourse(std::string name, double total);

  void note(double at);

  /// Call it when everything was let go. Prints, with the slope of `perUnit` units of time, called `per`; returns
  /// whether nothing grew.
  bool judge(double perUnit, const char* per) const;

 private:
  const std::string name_;
  const double total_;
  const int framebuffersBefore_;
  std::vector<Holdings> all_;
};

}  // namespace tavrel::benchmarks
