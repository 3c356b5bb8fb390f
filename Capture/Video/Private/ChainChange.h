#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "Capture/Video/Private/CameraChain.h"
#include "Capture/Video/Private/CameraEffects.h"

namespace tavrel {

/// What a camera's chain is to become once its programs are made, on a thread that cameras share:
///
///     none ──begin──▶ pending ──its programs are made──▶ `Ready` ──end──▶ none
///                      │   ▲
///                      └───┘ begin: the later one replaces it
///
/// Any thread, none of which waits for a compiler but in `wait`.
class ChainChange : public std::enable_shared_from_this<ChainChange> {
 public:
  struct Wanted {
    std::shared_ptr<const CameraEffects::Made> effects;
    CameraChain::Form form;
    Size frameSize;
  };
  /// Is to take what is pending, and to `end` it; the latter may be replaced or ended by now. On the thread that makes
  /// programs.
  using Ready = std::function<void()>;

  explicit ChainChange(Ready ready) : ready_(std::move(ready)) {}
  ChainChange(const ChainChange&) = delete;
  ChainChange& operator=(const ChainChange&) = delete;

  void begin(Wanted wanted);
  void end();
  /// If its programs are made.
  std::optional<Wanted> prepared() const;
  bool isPending() const;
  /// Until nothing is pending, or `isOver`; at most for a while that is longer than programs take.
  void wait(const std::function<bool()>& isOver);
  /// What `isOver` asks for may have changed.
  void wake();

 private:
  struct Pending {
    Wanted wanted;
    bool isPrepared = false;
  };

  void prepareWhatIsPending();

  const Ready ready_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<Pending> pending_;
  bool isPreparing_ = false;
};

}  // namespace tavrel
