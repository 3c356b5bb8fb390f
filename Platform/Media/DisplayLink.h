#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "Platform/Dispatch/DispatchTimer.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Calls back at the rate of the display, on the main run loop. Without a display it is paced by a timer at 60 Hz.
///
///     created ──addToMainRunLoop──▶ running ⇄ paused ──invalidate──▶ invalidated
///
/// Owned by whoever made it; its destruction invalidates. Any thread.
class TAVREL_API DisplayLink {
 public:
  /// Called on the main queue, while the main run loop runs.
  using Callback = std::function<void(DisplayLink& link)>;

  static std::shared_ptr<DisplayLink> create(Callback callback);
  DisplayLink(const DisplayLink&) = delete;
  DisplayLink& operator=(const DisplayLink&) = delete;
  ~DisplayLink();

  /// How many times a second displays show a picture from now on, for links added afterwards; 60 at first. For the
  /// display's owner. Values that are not positive are ignored.
  static void setDisplayRate(double framesPerSecond);
  /// The clock of `timestamp`, in seconds: steady, from an arbitrary start.
  static double hostTime();

  void addToMainRunLoop();
  bool isPaused() const;
  void setPaused(bool newValue);
  /// No call begins afterwards, except that one that runs at this moment on the main thread may finish.
  void invalidate();

  /// Inside the callback: when the display last showed a picture, and how long it takes to the next one, in seconds.
  double timestamp() const;
  double duration() const;

 private:
  explicit DisplayLink(Callback callback);
  void tick();

  const Callback callback_;
  std::weak_ptr<DisplayLink> self_;
  mutable std::mutex mutex_;
  std::unique_ptr<DispatchTimer> timer_;
  bool isPaused_ = false;
  bool isInvalidated_ = false;
  double timestamp_ = 0;
  double duration_ = 1.0 / 60;
};

}  // namespace tavrel
