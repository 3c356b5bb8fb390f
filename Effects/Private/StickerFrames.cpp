#include "Effects/Private/StickerFrames.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

/// Of large frames, too: one that is shown and one that follows it.
constexpr std::size_t kFewestAhead = 2;
/// Where software draws, decoding would take the processors from the frame that is about to be drawn.
constexpr auto kWhileDrawing = 15ms;
constexpr auto kPatience = 1ms;
constexpr auto kLookAgain = 50us;

}  // namespace

std::shared_ptr<StickerFrames> StickerFrames::create(Decoder decoder) {
  return std::shared_ptr<StickerFrames>(new StickerFrames(std::move(decoder)));
}

StickerFrames::StickerFrames(Decoder decoder)
    : decoder_(std::move(decoder)),
      ahead_(std::min(std::max(decoder_.ahead, kFewestAhead), decoder_.count)),
      queue_(DispatchQueue::create("com.TavrelBase.stickerframes", {.qualityOfService = QualityOfService::utility})) {}

std::size_t StickerFrames::stepsTo(std::size_t later, std::size_t earlier) const {
  return (later + decoder_.count - earlier) % decoder_.count;
}

std::optional<StickerFrames::Ready> StickerFrames::newest(std::size_t due, std::size_t shown) {
  std::unique_lock lock(mutex_, std::try_to_lock);
  for (const auto end = std::chrono::steady_clock::now() + kPatience; !lock.owns_lock();) {
    if (std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(kLookAgain);
    static_cast<void>(lock.try_lock());
  }
  due_ = due;
  auto best = ready_.end();
  std::size_t fewest = stepsTo(due, shown);
  for (auto frame = ready_.begin(); frame != ready_.end(); ++frame) {
    const std::size_t steps = stepsTo(due, frame->first);
    const bool isAhead = steps > 0 && stepsTo(frame->first, due) < ahead_;
    if (steps >= fewest || isAhead) continue;
    fewest = steps;
    best = frame;
  }
  std::optional<Ready> found;
  if (best != ready_.end()) found = {best->first, best->second};
  std::erase_if(ready_, [&](auto& frame) {
    if (stepsTo(frame.first, due) < ahead_) return false;
    unwanted_.push_back(std::move(frame.second));
    return true;
  });
  const bool isDueThere = shown == due || (found && found->index == due);
  workIfNeeded(isDueThere ? kWhileDrawing : 0ms);
  return found;
}

std::optional<std::size_t> StickerFrames::firstMissing() const {
  for (std::size_t i = 0; i < ahead_; ++i) {
    const std::size_t index = (due_ + i) % decoder_.count;
    if (!ready_.contains(index)) return index;
  }
  return std::nullopt;
}

void StickerFrames::workIfNeeded(std::chrono::milliseconds delay) {
  if (isWorking_ || (!firstMissing() && !preparesJumps_)) return;
  isWorking_ = true;
  queue_->asyncAfter(delay, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->work();
  });
}

void StickerFrames::work() {
  std::optional<std::size_t> missing;
  {
    std::vector<std::shared_ptr<Image>> unwanted;
    const std::lock_guard lock(mutex_);
    unwanted.swap(unwanted_);
    missing = firstMissing();
  }
  std::shared_ptr<Image> image;
  bool isPrepared = false;
  if (missing) {
    image = decoder_.frame(*missing);
  } else {
    isPrepared = !decoder_.prepareJumps();
  }
  const std::lock_guard lock(mutex_);
  if (missing) ready_[*missing] = std::move(image);
  if (isPrepared) preparesJumps_ = false;
  isWorking_ = false;
  workIfNeeded();
}

}  // namespace tavrel
