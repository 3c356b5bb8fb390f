#pragma once

#include <utility>

namespace tavrel {

/// Marks a thread that the dispatcher waits for, for as long as the scope lives: what it logs must not wait for the
/// dispatcher in turn.
class LogScope {
 public:
  LogScope() : outer_(std::exchange(flag(), true)) {}
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;
  ~LogScope() { flag() = outer_; }

  static bool isInside() { return flag(); }

 private:
  static bool& flag() {
    [[gnu::tls_model("initial-exec")]] static thread_local bool isInside = false;
    return isInside;
  }

  bool outer_;
};

}  // namespace tavrel
