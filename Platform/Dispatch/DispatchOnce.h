#pragma once

#include <mutex>
#include <utility>

namespace tavrel {

/// Runs the first block exactly once; concurrent callers wait until it has finished. Any thread.
class DispatchOnce {
 public:
  template <typename Callable>
  void run(Callable&& block) {
    std::call_once(flag_, std::forward<Callable>(block));
  }

 private:
  std::once_flag flag_;
};

}  // namespace tavrel
