#include "Platform/Media/MediaTime.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace tavrel {
namespace {

__extension__ using Wide = __int128;

constexpr Wide kMaximum = std::numeric_limits<std::int64_t>::max();

/// numerator / denominator, rounded half away from zero.
Wide roundedQuotient(Wide numerator, Wide denominator) {
  const Wide half = denominator / 2;
  return numerator >= 0 ? (numerator + half) / denominator : -((-numerator + half) / denominator);
}

MediaTime fromWide(Wide value, std::int32_t timescale, std::uint32_t flags, std::int64_t epoch) {
  if (value > kMaximum) return MediaTime::positiveInfinity();
  if (value < -kMaximum) return MediaTime::negativeInfinity();
  return {static_cast<std::int64_t>(value), timescale, flags, epoch};
}

int rank(const MediaTime& time) {
  if (!time.isValid()) return 4;
  if (time.isPositiveInfinity()) return 3;
  if (time.isIndefinite()) return 2;
  if (time.isNegativeInfinity()) return 0;
  return 1;
}

std::int32_t commonTimescale(std::int32_t left, std::int32_t right) {
  const std::int64_t multiple = std::lcm<std::int64_t>(left, right);
  return multiple <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(multiple)
                                                              : std::max(left, right);
}

MediaTime negated(const MediaTime& time) {
  if (time.isPositiveInfinity()) return MediaTime::negativeInfinity();
  if (time.isNegativeInfinity()) return MediaTime::positiveInfinity();
  MediaTime result = time;
  result.value = -result.value;
  return result;
}

}  // namespace

MediaTime MediaTime::make(std::int64_t value, std::int32_t timescale) {
  if (timescale <= 0) return invalid();
  return {value, timescale, kValid, 0};
}

MediaTime MediaTime::fromSeconds(double seconds, std::int32_t timescale) {
  if (std::isnan(seconds) || timescale <= 0) return invalid();
  const double scaled = std::round(seconds * timescale);
  // 2^63 as a double: the first value that does not fit.
  if (scaled >= 9223372036854775808.0) return positiveInfinity();
  if (scaled <= -9223372036854775808.0) return negativeInfinity();
  return make(static_cast<std::int64_t>(scaled), timescale);
}

double MediaTime::seconds() const {
  if (isPositiveInfinity()) return std::numeric_limits<double>::infinity();
  if (isNegativeInfinity()) return -std::numeric_limits<double>::infinity();
  if (!isNumeric() || timescale == 0) return std::numeric_limits<double>::quiet_NaN();
  return static_cast<double>(value) / timescale;
}

MediaTime MediaTime::convertedToTimescale(std::int32_t newTimescale) const {
  if (!isNumeric() || newTimescale == timescale) return *this;
  if (newTimescale <= 0 || timescale <= 0) return invalid();
  const Wide numerator = Wide{value} * newTimescale;
  const std::uint32_t rounded = numerator % timescale == 0 ? 0U : static_cast<std::uint32_t>(kHasBeenRounded);
  return fromWide(roundedQuotient(numerator, timescale), newTimescale, flags | rounded, epoch);
}

std::string MediaTime::description() const {
  if (!isValid()) return "{INVALID}";
  if (isIndefinite()) return "{INDEFINITE}";
  if (isPositiveInfinity()) return "{+INFINITY}";
  if (isNegativeInfinity()) return "{-INFINITY}";
  return fmt::format("{{{}/{} = {:.3f}}}", value, timescale, seconds());
}

std::strong_ordering operator<=>(const MediaTime& left, const MediaTime& right) {
  const int leftRank = rank(left);
  const int rightRank = rank(right);
  if (leftRank != 1 || rightRank != 1) return leftRank <=> rightRank;
  if (left.epoch != right.epoch) return left.epoch <=> right.epoch;
  const Wide leftValue = Wide{left.value} * right.timescale;
  const Wide rightValue = Wide{right.value} * left.timescale;
  if (leftValue == rightValue) return std::strong_ordering::equal;
  return leftValue < rightValue ? std::strong_ordering::less : std::strong_ordering::greater;
}

MediaTime operator+(const MediaTime& left, const MediaTime& right) {
  if (!left.isValid() || !right.isValid()) return MediaTime::invalid();
  if (left.isIndefinite() || right.isIndefinite()) return MediaTime::indefinite();
  if (!left.isNumeric() || !right.isNumeric()) {
    if (!left.isNumeric() && !right.isNumeric() && rank(left) != rank(right)) return MediaTime::invalid();
    return left.isNumeric() ? right : left;
  }
  const std::int32_t timescale = commonTimescale(left.timescale, right.timescale);
  const MediaTime first = left.convertedToTimescale(timescale);
  const MediaTime second = right.convertedToTimescale(timescale);
  if (!first.isNumeric() || !second.isNumeric()) return first + second;
  return fromWide(Wide{first.value} + second.value, timescale, first.flags | second.flags, left.epoch);
}

MediaTime operator-(const MediaTime& left, const MediaTime& right) { return left + negated(right); }

}  // namespace tavrel
