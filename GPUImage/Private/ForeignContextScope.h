#pragma once

#include <memory>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

class GLContext;

/// A block meant for one context's queue that runs inline on another's.
///
/// EGL lets a context be current on one thread at a time. When the block needs a context that its own queue's thread
/// holds, that thread is asked to lend it: it releases the context and waits until this scope ends. Afterwards the
/// context that was current before the scope is current again.
class ForeignContextScope {
 public:
  ForeignContextScope();
  ForeignContextScope(const ForeignContextScope&) = delete;
  ForeignContextScope& operator=(const ForeignContextScope&) = delete;
  ~ForeignContextScope();

  /// The scope that the calling thread is in, or nullptr.
  static ForeignContextScope* innermost();

  /// Returns once `owner`'s thread holds no context. `owner` must not wait for the calling thread meanwhile.
  void borrow(const std::shared_ptr<DispatchQueue>& owner);

 private:
  struct Loan;

  ForeignContextScope* outer_;
  GLContext* previous_;
  std::vector<std::shared_ptr<Loan>> loans_;
};

}  // namespace tavrel
