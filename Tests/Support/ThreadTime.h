#pragma once

#include <ctime>

namespace tavrel::test {

/// Seconds of processor time that this thread has used, which other programs do not lengthen.
inline double threadTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Those that `work` takes.
template <typename Work>
double costOf(Work work) {
  const double start = threadTime();
  work();
  return threadTime() - start;
}

}  // namespace tavrel::test
