#include "Platform/Media/PlayerItem.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Media/DisplayLink.h"

namespace tavrel {
namespace {

constexpr std::int32_t kItemTimescale = 1'000'000'000;

}  // namespace

struct PlayerItem::State {
  std::mutex mutex;
  double rate = 0;
  double anchorHostTime = 0;
  double anchorItemTime = 0;
  std::vector<std::shared_ptr<PlayerItemVideoOutput>> outputs;
};

PlayerItem::PlayerItem(std::shared_ptr<const Asset> asset) : asset_(std::move(asset)), state_(new State) {
  if (!asset_) fatalAssertion("A player item needs an asset");
}

PlayerItem::~PlayerItem() {
  for (const auto& output : state_->outputs) output->attach(nullptr);
}

void PlayerItem::setRate(double rate) {
  if (!isFinite(rate)) return;
  const double now = DisplayLink::hostTime();
  const double time = itemTimeForHostTime(now).seconds();
  const std::lock_guard lock(state_->mutex);
  state_->anchorItemTime = time;
  state_->anchorHostTime = now;
  state_->rate = std::max(0.0, rate);
}

double PlayerItem::rate() const {
  const std::lock_guard lock(state_->mutex);
  return state_->rate;
}

void PlayerItem::seek(MediaTime time) {
  std::vector<std::shared_ptr<PlayerItemVideoOutput>> outputs;
  {
    const std::lock_guard lock(state_->mutex);
    state_->anchorItemTime = time.isNumeric() ? std::max(0.0, time.seconds()) : 0;
    state_->anchorHostTime = DisplayLink::hostTime();
    outputs = state_->outputs;
  }
  for (const auto& output : outputs) output->restart(time);
}

MediaTime PlayerItem::currentTime() const { return itemTimeForHostTime(DisplayLink::hostTime()); }

MediaTime PlayerItem::itemTimeForHostTime(double hostTime) const {
  const double end = asset_->duration().seconds();
  const std::lock_guard lock(state_->mutex);
  const double time = state_->anchorItemTime + state_->rate * (hostTime - state_->anchorHostTime);
  return MediaTime::fromSeconds(std::clamp(time, 0.0, std::max(0.0, end)), kItemTimescale);
}

void PlayerItem::addOutput(const std::shared_ptr<PlayerItemVideoOutput>& output) {
  if (!output) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->outputs.push_back(output);
  }
  output->attach(this);
  output->restart(currentTime());
}

void PlayerItem::removeOutput(const std::shared_ptr<PlayerItemVideoOutput>& output) {
  {
    const std::lock_guard lock(state_->mutex);
    if (std::erase(state_->outputs, output) == 0) return;
  }
  output->attach(nullptr);
}

}  // namespace tavrel
