#include "Platform/Media/DisplayLink.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace tavrel {
namespace {

std::atomic<double> displayRate = 60;

/// In pictures a second.
constexpr double kSlowestDisplay = 0.1;
constexpr double kFastestDisplay = 1000;

}  // namespace

std::shared_ptr<DisplayLink> DisplayLink::create(Callback callback) {
  std::shared_ptr<DisplayLink> link(new DisplayLink(std::move(callback)));
  link->self_ = link;
  return link;
}

DisplayLink::DisplayLink(Callback callback) : callback_(std::move(callback)) {}

DisplayLink::~DisplayLink() { invalidate(); }

void DisplayLink::setDisplayRate(double framesPerSecond) {
  if (framesPerSecond > 0) displayRate = std::clamp(framesPerSecond, kSlowestDisplay, kFastestDisplay);
}

double DisplayLink::hostTime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void DisplayLink::addToMainRunLoop() {
  const std::lock_guard lock(mutex_);
  if (timer_ || isInvalidated_) return;
  duration_ = 1 / displayRate;
  const auto interval = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(duration_));
  timer_ = std::make_unique<DispatchTimer>(DispatchQueue::main(), interval, [weak = self_] {
    if (const auto self = weak.lock()) self->tick();
  });
}

void DisplayLink::tick() {
  {
    const std::lock_guard lock(mutex_);
    if (isPaused_ || isInvalidated_) return;
    timestamp_ = hostTime();
  }
  callback_(*this);
}

bool DisplayLink::isPaused() const {
  const std::lock_guard lock(mutex_);
  return isPaused_;
}

void DisplayLink::setPaused(bool newValue) {
  const std::lock_guard lock(mutex_);
  isPaused_ = newValue;
}

void DisplayLink::invalidate() {
  std::unique_ptr<DispatchTimer> timer;
  const std::lock_guard lock(mutex_);
  isInvalidated_ = true;
  timer = std::move(timer_);
}

double DisplayLink::timestamp() const {
  const std::lock_guard lock(mutex_);
  return timestamp_;
}

double DisplayLink::duration() const {
  const std::lock_guard lock(mutex_);
  return duration_;
}

}  // namespace tavrel
