#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "Platform/Capture/CaptureClock.h"

namespace tavrel {

/// A simulated clock: once every attached device waits, it jumps to the earliest time that one waits for. Minutes of
/// capture pass as fast as consumers take them, in a fixed order: one device at a time, the earliest due first, ties in
/// order of attachment.
///
/// It stands still until `run` or `runUntil`, so that several devices can be started at the same time. Any thread.
class TAVREL_API FastClock : public CaptureClock {
 public:
  /// Stands at `start`.
  explicit FastClock(MediaTime start = MediaTime::make(1'700'000'000LL * kTimescale, kTimescale));

  /// Lets time pass until `pause`.
  void run();
  void pause();
  /// Runs up to and including `time`, then stands there. False if the devices do not get there within `patience` of
  /// real time; the clock then stands where they are. One caller at a time.
  bool runUntil(MediaTime time, std::chrono::nanoseconds patience = std::chrono::seconds(60));
  /// `runUntil` with `now()` plus `seconds`.
  bool runFor(double seconds, std::chrono::nanoseconds patience = std::chrono::seconds(60));

  MediaTime now() const override;
  bool waitUntil(MediaTime time, const std::stop_token& cancel, Attendee attendee = 0) override;
  bool isRealTime() const override { return false; }
  Attendee attach() override;
  void detach(Attendee attendee) override;

 private:
  struct Waiting {
    MediaTime time;
    bool due = false;
  };

  bool allWait() const;
  void advance();

  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  MediaTime now_;
  MediaTime limit_;
  Attendee lastAttendee_ = 0;
  std::map<Attendee, Waiting*> attendees_;  // nullptr while the device works
};

}  // namespace tavrel
