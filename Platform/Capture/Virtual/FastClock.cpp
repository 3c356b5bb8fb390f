#include "Platform/Capture/Virtual/FastClock.h"

#include <algorithm>

namespace tavrel {

FastClock::FastClock(MediaTime start)
    : now_(start.convertedToTimescale(kTimescale)), limit_(MediaTime::negativeInfinity()) {}

void FastClock::run() {
  const std::lock_guard lock(mutex_);
  limit_ = MediaTime::positiveInfinity();
  advance();
}

void FastClock::pause() {
  const std::lock_guard lock(mutex_);
  limit_ = MediaTime::negativeInfinity();
}

bool FastClock::runUntil(MediaTime time, std::chrono::nanoseconds patience) {
  std::unique_lock lock(mutex_);
  limit_ = time.convertedToTimescale(kTimescale);
  advance();
  const auto deadline = std::chrono::steady_clock::now() + patience;
  // `advance` sets every waiting device going that is due, so when all of them wait, none is due.
  const bool arrived = changed_.wait_until(lock, deadline, [this] { return allWait(); });
  if (arrived && now_ < limit_) now_ = limit_;
  limit_ = MediaTime::negativeInfinity();
  return arrived;
}

bool FastClock::runFor(double seconds, std::chrono::nanoseconds patience) {
  return runUntil(now() + MediaTime::fromSeconds(seconds, kTimescale), patience);
}

MediaTime FastClock::now() const {
  const std::lock_guard lock(mutex_);
  return now_;
}

bool FastClock::waitUntil(MediaTime time, const std::stop_token& cancel, Attendee attendee) {
  std::unique_lock lock(mutex_);
  const auto entry = attendees_.find(attendee);
  if (entry == attendees_.end()) return changed_.wait(lock, cancel, [&] { return now_ >= time; });

  Waiting waiting{time.convertedToTimescale(kTimescale)};
  entry->second = &waiting;
  advance();
  changed_.wait(lock, cancel, [&] { return waiting.due; });
  attendees_[attendee] = nullptr;
  return waiting.due;
}

CaptureClock::Attendee FastClock::attach() {
  const std::lock_guard lock(mutex_);
  attendees_[++lastAttendee_] = nullptr;
  return lastAttendee_;
}

void FastClock::detach(Attendee attendee) {
  const std::lock_guard lock(mutex_);
  attendees_.erase(attendee);
  advance();
}

bool FastClock::allWait() const {
  return std::all_of(attendees_.begin(), attendees_.end(),
                     [](const auto& entry) { return entry.second && !entry.second->due; });
}

void FastClock::advance() {
  changed_.notify_all();
  if (attendees_.empty() || !allWait()) return;
  const auto earliest = std::min_element(attendees_.begin(), attendees_.end(), [](const auto& left, const auto& right) {
    return left.second->time < right.second->time;
  });
  if (earliest->second->time > limit_) return;
  now_ = std::max(now_, earliest->second->time);
  earliest->second->due = true;
}

}  // namespace tavrel
