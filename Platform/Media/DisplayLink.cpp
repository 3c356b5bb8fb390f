#include "Platform/Media/DisplayLink.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>

#include "Platform/Dispatch/DispatchTimer.h"

namespace tavrel {
namespace {

std::atomic<double> displayRate = 60;

/// In pictures a second.
constexpr double kSlowestDisplay = 0.1;
constexpr double kFastestDisplay = 1000;

}  // namespace

struct DisplayLink::State {
  const Callback callback;
  std::weak_ptr<DisplayLink> self{};
  std::mutex mutex{};
  std::unique_ptr<DispatchTimer> timer{};
  bool isPaused = false;
  bool isInvalidated = false;
  double timestamp = 0;
  double duration = 1.0 / 60;
};

std::shared_ptr<DisplayLink> DisplayLink::create(Callback callback) {
  std::shared_ptr<DisplayLink> link(new DisplayLink(std::move(callback)));
  link->state_->self = link;
  return link;
}

DisplayLink::DisplayLink(Callback callback) : state_(new State{.callback = std::move(callback)}) {}

DisplayLink::~DisplayLink() { invalidate(); }

void DisplayLink::setDisplayRate(double framesPerSecond) {
  if (framesPerSecond > 0) displayRate = std::clamp(framesPerSecond, kSlowestDisplay, kFastestDisplay);
}

double DisplayLink::hostTime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void DisplayLink::addToMainRunLoop() {
  const std::lock_guard lock(state_->mutex);
  if (state_->timer || state_->isInvalidated) return;
  state_->duration = 1 / displayRate;
  const auto interval =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(state_->duration));
  state_->timer = std::make_unique<DispatchTimer>(DispatchQueue::main(), interval, [weak = state_->self] {
    if (const auto self = weak.lock()) self->tick();
  });
}

void DisplayLink::tick() {
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->isPaused || state_->isInvalidated) return;
    state_->timestamp = hostTime();
  }
  state_->callback(*this);
}

bool DisplayLink::isPaused() const {
  const std::lock_guard lock(state_->mutex);
  return state_->isPaused;
}

void DisplayLink::setPaused(bool newValue) {
  const std::lock_guard lock(state_->mutex);
  state_->isPaused = newValue;
}

void DisplayLink::invalidate() {
  std::unique_ptr<DispatchTimer> timer;
  const std::lock_guard lock(state_->mutex);
  state_->isInvalidated = true;
  timer = std::move(state_->timer);
}

double DisplayLink::timestamp() const {
  const std::lock_guard lock(state_->mutex);
  return state_->timestamp;
}

double DisplayLink::duration() const {
  const std::lock_guard lock(state_->mutex);
  return state_->duration;
}

}  // namespace tavrel
