#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Dispatch/DispatchTimer.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Calls back at the display's rate, 60 Hz without a display, by a timer on the main run loop.
///
///     created ──addToMainRunLoop──▶ running ⇄ paused ──invalidate──▶ invalidated
///
/// Destruction invalidates. Any thread.
class TAVREL_API DisplayLink {
 public:
  /// Called on the main queue, while the main run loop runs.
  using Callback = std::function<void(DisplayLink& link)>;

  static std::shared_ptr<DisplayLink> create(Callback callback);
  DisplayLink(const DisplayLink&) = delete;
  DisplayLink& operator=(const DisplayLink&) = delete;
  ~DisplayLink();

  /// Called by the owner of the display. Sets the rate of links added afterwards; initially 60. Ignored unless
  /// positive.
  static void setDisplayRate(double framesPerSecond);
  /// The clock of `timestamp`: steady seconds from an arbitrary start.
  static double hostTime();

  void addToMainRunLoop();
  bool isPaused() const;
  void setPaused(bool newValue);
  /// No call begins after the return; one in progress may still finish.
  void invalidate();

  /// In the callback: the time of this refresh, and the time to the next, in seconds.
  double timestamp() const;
  double duration() const;

 private:
  explicit DisplayLink(Callback callback);
  void tick();
  struct State;
  const Pimpl<State> state_;
};

}  // namespace tavrel
