#include "Platform/Tracing/Private/DurationHistogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace tavrel {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

template <typename IsBetter>
void improve(std::atomic<std::int64_t>& best, std::int64_t value, IsBetter isBetter) {
  std::int64_t known = best.load(kRelaxed);
  while (isBetter(value, known) && !best.compare_exchange_weak(known, value, kRelaxed)) {
  }
}

}  // namespace

std::size_t DurationHistogram::bucketOf(std::uint64_t magnitude) {
  magnitude = std::min(magnitude, (std::uint64_t{1} << kBits) - 1);
  const int shift = std::max(0, static_cast<int>(std::bit_width(magnitude)) - kSubBits - 1);
  return (static_cast<std::size_t>(shift) << kSubBits) + static_cast<std::size_t>(magnitude >> shift);
}

double DurationHistogram::middleOf(std::size_t bucket) {
  const std::size_t shift = bucket < (2U << kSubBits) ? 0 : (bucket >> kSubBits) - 1;
  const auto lower = static_cast<double>((bucket - (shift << kSubBits)) << shift);
  return lower + static_cast<double>((std::uint64_t{1} << shift) - 1) / 2;
}

void DurationHistogram::add(std::int64_t nanoseconds) {
  count_.fetch_add(1, kRelaxed);
  sum_.fetch_add(nanoseconds, kRelaxed);
  last_.store(nanoseconds, kRelaxed);
  improve(least_, nanoseconds, std::less<>());
  improve(most_, nanoseconds, std::greater<>());
  buckets_[bucketOf(static_cast<std::uint64_t>(std::abs(nanoseconds)))].fetch_add(1, kRelaxed);
}

void DurationHistogram::reset() {
  count_.store(0, kRelaxed);
  sum_.store(0, kRelaxed);
  least_.store(INT64_MAX, kRelaxed);
  most_.store(INT64_MIN, kRelaxed);
  last_.store(0, kRelaxed);
  for (auto& bucket : buckets_) bucket.store(0, kRelaxed);
}

double DurationHistogram::mean() const {
  const std::uint64_t values = count();
  return values == 0 ? 0 : static_cast<double>(sum_.load(kRelaxed)) / static_cast<double>(values);
}

double DurationHistogram::percentile(double fraction) const {
  std::uint64_t total = 0;
  for (const auto& bucket : buckets_) total += bucket.load(kRelaxed);
  if (total == 0) return 0;
  const auto rank = std::max(std::uint64_t{1}, static_cast<std::uint64_t>(std::ceil(fraction * double(total))));
  std::uint64_t seen = 0;
  std::size_t bucket = 0;
  while (bucket + 1 < kBuckets && (seen += buckets_[bucket].load(kRelaxed)) < rank) ++bucket;
  // The bucket's middle may lie beyond the values in it.
  const auto largest = static_cast<double>(std::max(std::abs(least()), std::abs(most())));
  return std::min(middleOf(bucket), largest);
}

}  // namespace tavrel
