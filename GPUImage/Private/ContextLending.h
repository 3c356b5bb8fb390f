#pragma once

#include <memory>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

class GLContext;

/// Who may use one context's GL context, which EGL lets be current on one thread at a time.
///
/// That is the thread of its own queue. A block meant for the context that runs inline on another context's queue takes
/// it from there: the own thread stands aside until the block's `ForeignContextScope` ends, between two of its blocks
/// or where it waits for another context itself. Who waits holds no context, so that waiting never goes round in a
/// circle.
class ContextLending {
 public:
  /// For the context whose queue is `owner`, which finds this by its specific value.
  explicit ContextLending(std::shared_ptr<DispatchQueue> owner);
  ContextLending(const ContextLending&) = delete;
  ContextLending& operator=(const ContextLending&) = delete;
  ~ContextLending();

  /// Makes the GL context current on the calling thread: on that of the own queue and inside a `ForeignContextScope`
  /// once it is this thread's turn, elsewhere if nobody else uses it. False when another thread does.
  bool take(GLContext& context);

 private:
  friend class ContextWait;
  friend class ForeignContextScope;

  /// What is current on the calling thread, to be made so again.
  struct Current {
    Current();
    void restore() const;

    GLContext* const context;
    ContextLending* const lending;
  };

  static ContextLending* ofCallingThread();
  static void letGo();
  void standAside(const std::shared_ptr<const bool>& isOver);
  void waitForTurn(bool isOwn);

  const std::shared_ptr<DispatchQueue> owner_;
  bool isOwnAside_ = false;  // the own thread waits, without the context
  bool isTaken_ = false;     // by another thread
};

/// A block meant for one context's queue that runs inline on another's. After it, the context that was current before
/// is current again.
class ForeignContextScope {
 public:
  ForeignContextScope();
  ForeignContextScope(const ForeignContextScope&) = delete;
  ForeignContextScope& operator=(const ForeignContextScope&) = delete;
  ~ForeignContextScope();

  /// The scope that the calling thread is in, or nullptr.
  static ForeignContextScope* innermost();

 private:
  friend class ContextLending;

  bool hasAskedFor(const ContextLending& lending) const;
  void askFor(ContextLending& lending);

  ForeignContextScope* const outer_;
  const ContextLending::Current previous_;
  const std::shared_ptr<bool> isOver_ = std::make_shared<bool>(false);
  std::vector<const ContextLending*> asked_;
};

/// Lends the context of the calling thread's queue while that thread waits for what another queue does, which may need
/// the context for it. Has no effect outside the queues of contexts. Longer waits for a semaphore, a group or another
/// queue do so by themselves (`DispatchQueue::setLender`); this is for waits that are known to be long.
class ContextWait {
 public:
  ContextWait();
  ContextWait(const ContextWait&) = delete;
  ContextWait& operator=(const ContextWait&) = delete;
  ~ContextWait();

 private:
  const ContextLending::Current previous_;
  ContextLending* const own_ = ContextLending::ofCallingThread();
};

}  // namespace tavrel
