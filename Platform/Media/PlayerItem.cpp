#include "Platform/Media/PlayerItem.h"

#include <algorithm>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Media/DisplayLink.h"

namespace tavrel {
namespace {

constexpr std::int32_t kItemTimescale = 1'000'000'000;

}  // namespace

PlayerItem::PlayerItem(std::shared_ptr<const Asset> asset) : asset_(std::move(asset)) {
  if (!asset_) fatalAssertion("A player item needs an asset");
}

PlayerItem::~PlayerItem() {
  for (const auto& output : outputs_) output->attach(nullptr);
}

void PlayerItem::setRate(double rate) {
  if (!isFinite(rate)) return;
  const double now = DisplayLink::hostTime();
  const double time = itemTimeForHostTime(now).seconds();
  const std::lock_guard lock(mutex_);
  anchorItemTime_ = time;
  anchorHostTime_ = now;
  rate_ = std::max(0.0, rate);
}

double PlayerItem::rate() const {
  const std::lock_guard lock(mutex_);
  return rate_;
}

void PlayerItem::seek(MediaTime time) {
  std::vector<std::shared_ptr<PlayerItemVideoOutput>> outputs;
  {
    const std::lock_guard lock(mutex_);
    anchorItemTime_ = time.isNumeric() ? std::max(0.0, time.seconds()) : 0;
    anchorHostTime_ = DisplayLink::hostTime();
    outputs = outputs_;
  }
  for (const auto& output : outputs) output->restart(time);
}

MediaTime PlayerItem::currentTime() const { return itemTimeForHostTime(DisplayLink::hostTime()); }

MediaTime PlayerItem::itemTimeForHostTime(double hostTime) const {
  const double end = asset_->duration().seconds();
  const std::lock_guard lock(mutex_);
  const double time = anchorItemTime_ + rate_ * (hostTime - anchorHostTime_);
  return MediaTime::fromSeconds(std::clamp(time, 0.0, std::max(0.0, end)), kItemTimescale);
}

void PlayerItem::addOutput(const std::shared_ptr<PlayerItemVideoOutput>& output) {
  if (!output) return;
  {
    const std::lock_guard lock(mutex_);
    outputs_.push_back(output);
  }
  output->attach(this);
  output->restart(currentTime());
}

void PlayerItem::removeOutput(const std::shared_ptr<PlayerItemVideoOutput>& output) {
  {
    const std::lock_guard lock(mutex_);
    if (std::erase(outputs_, output) == 0) return;
  }
  output->attach(nullptr);
}

}  // namespace tavrel
