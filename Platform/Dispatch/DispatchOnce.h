#pragma once

#include <mutex>
#include <utility>

namespace tavrel {

/// Runs the first block it is given, exactly once; later callers wait until that has finished. Any thread.
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
