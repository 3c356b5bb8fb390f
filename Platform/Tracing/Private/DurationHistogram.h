#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tavrel {

/// How often which durations were seen, in fixed memory (about 5 kB): log-linear buckets, 32 to each power of two, so
/// that a percentile is off by 1.6 % at most. In nanoseconds, to 18 minutes; what is longer counts as that. Any thread;
/// `add` never waits.
class DurationHistogram {
 public:
  /// A negative value, as differences have, is filed under its magnitude; mean, least and most keep the sign.
  void add(std::int64_t nanoseconds);
  void reset();

  std::uint64_t count() const { return count_.load(std::memory_order_relaxed); }
  double mean() const;
  std::int64_t least() const { return least_.load(std::memory_order_relaxed); }
  std::int64_t most() const { return most_.load(std::memory_order_relaxed); }
  std::int64_t last() const { return last_.load(std::memory_order_relaxed); }
  /// The magnitude that `fraction` (0…1) of the values do not exceed; 0 without values.
  double percentile(double fraction) const;

 private:
  static constexpr int kSubBits = 5;
  static constexpr int kBits = 40;
  static constexpr std::size_t kBuckets = ((kBits - kSubBits - 1) << kSubBits) + (2 << kSubBits);

  static std::size_t bucketOf(std::uint64_t magnitude);
  static double middleOf(std::size_t bucket);

  std::atomic<std::uint64_t> count_ = 0;
  std::atomic<std::int64_t> sum_ = 0;
  std::atomic<std::int64_t> least_ = INT64_MAX;
  std::atomic<std::int64_t> most_ = INT64_MIN;
  std::atomic<std::int64_t> last_ = 0;
  std::array<std::atomic<std::uint32_t>, kBuckets> buckets_{};
};

}  // namespace tavrel
