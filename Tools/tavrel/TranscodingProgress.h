#pragma once

#include <chrono>
#include <cstdint>

#include "Report.h"

namespace tavrel::tool {

/// How far a transcoding is: the share, the speed as a multiple of the movie's own, and the time left. On a terminal as
/// a bar; anywhere, where asked for, as a line of JSON a second.
class TranscodingProgress {
 public:
  /// `wholeSeconds` of movie, 0 where nobody knows.
  TranscodingProgress(double wholeSeconds, bool printsLines) : whole_(wholeSeconds), printsLines_(printsLines) {}

  void show(double seconds, std::uint64_t frames);

 private:
  using Clock = std::chrono::steady_clock;

  const double whole_;
  const bool printsLines_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_;
  ProgressBar bar_;
};

}  // namespace tavrel::tool
