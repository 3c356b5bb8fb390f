#pragma once

#include <algorithm>
#include <cstdint>

namespace tavrel {

/// When the pictures of a feed are due, in nanoseconds of the monotonic clock.
///
/// Those of a source of about the feed's rate go out at once, whatever its jitter, half an interval apart at least. Of
/// a faster source one goes out each interval. The last one is repeated when the next is half an interval late.
class FeedPacer {
 public:
  explicit FeedPacer(double framesPerSecond)
      : interval_(static_cast<std::int64_t>(1e9 / framesPerSecond)), usualGap_(interval_) {}

  /// A picture came.
  void came(std::int64_t now) {
    usualGap_ += (std::min(now - cameAt_, 2 * interval_) - usualGap_) / kMemory;
    cameAt_ = now;
  }
  /// From when on the latest picture may go out: for the first time, or again.
  std::int64_t due(bool isNew) const {
    if (!isNew) return sentAt_ + (wasNew_ ? interval_ * 3 / 2 : interval_);
    const bool isFast = usualGap_ < interval_ * 17 / 20;
    return sentAt_ + (isFast ? interval_ : interval_ / 2);
  }
  /// One goes out.
  void sent(std::int64_t now, bool isNew) {
    sentAt_ = now;
    wasNew_ = isNew;
  }
  std::int64_t interval() const { return interval_; }

 private:
  static constexpr std::int64_t kMemory = 8;  // pictures

  const std::int64_t interval_;
  std::int64_t usualGap_;
  std::int64_t cameAt_ = 0;
  std::int64_t sentAt_ = 0;
  bool wasNew_ = true;
};

}  // namespace tavrel
