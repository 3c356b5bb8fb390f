#include "Capture/Video/Private/ChainChange.h"

#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kPatience(30);

/// Kept for good, so that no camera waits for it when it goes.
DispatchQueue& preparationQueue() {
  static const auto* const queue = new std::shared_ptr<DispatchQueue>(
      DispatchQueue::create("video.tavrel.chainchange", {.qualityOfService = QualityOfService::utility}));
  return **queue;
}

}  // namespace

void ChainChange::begin(Wanted wanted) {
  auto replaced = std::make_shared<Pending>(Pending{std::move(wanted)});
  const std::lock_guard lock(mutex_);
  pending_.swap(replaced);
  if (std::exchange(isPreparing_, true)) return;
  preparationQueue().async([self = shared_from_this()] { self->prepareWhatIsPending(); });
}

void ChainChange::prepareWhatIsPending() {
  for (;;) {
    std::shared_ptr<Pending> pending;
    {
      const std::lock_guard lock(mutex_);
      isPreparing_ = pending_ && !pending_->isPrepared;
      if (!isPreparing_) return;
      pending = pending_;
    }
    // What is replaced meanwhile is made to its end: the next one mostly needs the same programs.
    CameraChain::prepare(pending->wanted.effects->nodes, pending->wanted.form, pending->wanted.frameSize);
    {
      const std::lock_guard lock(mutex_);
      pending->isPrepared = true;
    }
    pending.reset();
    ready_();
  }
}

void ChainChange::end() {
  std::shared_ptr<Pending> ended;
  const std::lock_guard lock(mutex_);
  ended.swap(pending_);
  changed_.notify_all();
}

std::optional<ChainChange::Wanted> ChainChange::prepared() const {
  const std::lock_guard lock(mutex_);
  if (!pending_ || !pending_->isPrepared) return std::nullopt;
  return pending_->wanted;
}

bool ChainChange::isPending() const {
  const std::lock_guard lock(mutex_);
  return pending_ != nullptr;
}

void ChainChange::wait(const std::function<bool()>& isOver) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kPatience, [&] { return !pending_ || isOver(); });
}

void ChainChange::wake() {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
}

}  // namespace tavrel
