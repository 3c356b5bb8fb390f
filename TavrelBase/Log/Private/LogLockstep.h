#pragma once

#include <atomic>
#include <barrier>
#include <cstdint>
#include <functional>
#include <utility>

namespace tavrel {

/// Lets several threads go through the same row of steps together: none begins a step before all have finished the one
/// before.
class LogLockstep {
 public:
  /// `onAll` is called with each finished step's number, counted from 0, before anybody goes on. `spins`: whether every
  /// thread may have a processor of its own, so that a short wait need not sleep.
  LogLockstep(unsigned threads, bool spins, std::function<void(std::uint32_t step)> onAll)
      : spins_(spins ? kSpins : 0), onAll_(std::move(onAll)), barrier_(threads, Completion{this}) {}

  /// Ends step number `step`. A thread that has to sleep calls `onSleep` first.
  template <typename OnSleep>
  void finish(std::uint32_t step, OnSleep&& onSleep) {
    auto arrival = barrier_.arrive();
    for (int i = 0; i < spins_; ++i) {
      if (step_.load(std::memory_order_acquire) != step) break;
    }
    // No yielding in between: on a busy machine that gives the processor to other programs for a whole time slice.
    if (step_.load(std::memory_order_acquire) == step) onSleep();
    barrier_.wait(std::move(arrival));
  }

 private:
  struct Completion {
    LogLockstep* lockstep;
    void operator()() const noexcept {
      const std::uint32_t step = lockstep->step_.load(std::memory_order_relaxed);
      lockstep->onAll_(step);
      lockstep->step_.store(step + 1, std::memory_order_release);
    }
  };
  static constexpr int kSpins = 2000;

  const int spins_;
  const std::function<void(std::uint32_t step)> onAll_;
  std::atomic<std::uint32_t> step_ = 0;
  std::barrier<Completion> barrier_;
};

}  // namespace tavrel
