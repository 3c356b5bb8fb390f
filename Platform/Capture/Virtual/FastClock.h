#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "Platform/Capture/CaptureClock.h"

namespace tavrel {

/// A clock without real time: it jumps to the next time that a device waits for, once every attached device waits.
/// Minutes of capture pass as fast as the consumers take them, in one fixed order: one device at a time, the earliest
/// due first, and of those due at the same time the one that attached first.
///
/// It stands still until `run` or `runUntil`, so that several devices can be started on one time line. Any thread.
class TAVREL_API FastClock : public CaptureClock {
 public:
  /// Starts standing at `start`.
  explicit FastClock(MediaTime start = MediaTime::make(1'700'000'000LL * kTimescale, kTimescale));

  /// Lets time pass until `pause`.
  void run();
  void pause();
  /// Lets everything happen that is due up to and including `time`, then stands at `time`. False when the devices did
  /// not get there within `patience` of real time; the clock then stands where they are. Not for several callers at
  /// once.
  bool runUntil(MediaTime time, std::chrono::nanoseconds patience = std::chrono::seconds(60));
  /// `runUntil` that many seconds after `now()`.
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
