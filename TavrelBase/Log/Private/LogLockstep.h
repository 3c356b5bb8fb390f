#pragma once

#include <atomic>
#include <cstdint>

namespace tavrel {

/// Lets several threads go through the same row of steps together: none begins a step before all have finished the one
/// before.
class LogLockstep {
 public:
  /// `spins`: whether every thread may have a processor of its own, so that a short wait need not sleep.
  LogLockstep(unsigned threads, bool spins) : threads_(threads), spins_(spins ? kSpins : 0) {}

  /// Ends step number `step`, counted from 0. The thread that finishes last calls `onAll` before anybody goes on; a
  /// thread that has to sleep calls `onSleep` first.
  template <typename OnAll, typename OnSleep>
  void finish(std::uint32_t step, OnAll&& onAll, OnSleep&& onSleep) {
    if (finished_.fetch_add(1, std::memory_order_acq_rel) + 1 == threads_) {
      finished_.store(0, std::memory_order_relaxed);
      onAll();
      step_.store(step + 1, std::memory_order_release);
      step_.notify_all();
      return;
    }
    for (int i = 0; i < spins_; ++i) {
      if (step_.load(std::memory_order_acquire) != step) return;
    }
    // No yielding in between: on a busy machine that gives the processor to other programs for a whole time slice.
    onSleep();
    step_.wait(step, std::memory_order_acquire);
  }

 private:
  static constexpr int kSpins = 2000;

  const unsigned threads_;
  const int spins_;
  std::atomic<unsigned> finished_ = 0;
  std::atomic<std::uint32_t> step_ = 0;
};

}  // namespace tavrel
