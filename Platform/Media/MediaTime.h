#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A rational time: `value` / `timescale` seconds, or one of the special times below.
///
/// Ordered: negative infinity, numeric times, indefinite, positive infinity, invalid. `==` and `<=>` compare times, not
/// fields: 1/2 equals 2/4. Epochs are compared first.
struct TAVREL_API MediaTime {
  enum Flags : std::uint32_t {
    kValid = 0x1,
    kHasBeenRounded = 0x2,
    kPositiveInfinity = 0x4,
    kNegativeInfinity = 0x8,
    kIndefinite = 0x10,
  };

  std::int64_t value = 0;
  std::int32_t timescale = 0;
  std::uint32_t flags = 0;
  std::int64_t epoch = 0;

  /// Invalid if the timescale is not positive.
  static MediaTime make(std::int64_t value, std::int32_t timescale);
  /// `seconds` rounded to the timescale. Not-a-number gives invalid, infinities give infinite times.
  static MediaTime fromSeconds(double seconds, std::int32_t timescale);

  static MediaTime invalid() { return {}; }
  static MediaTime zero() { return {0, 1, kValid, 0}; }
  static MediaTime indefinite() { return {0, 0, kValid | kIndefinite, 0}; }
  static MediaTime positiveInfinity() { return {0, 0, kValid | kPositiveInfinity, 0}; }
  static MediaTime negativeInfinity() { return {0, 0, kValid | kNegativeInfinity, 0}; }

  bool isValid() const { return (flags & kValid) != 0; }
  bool isIndefinite() const { return isValid() && (flags & kIndefinite) != 0; }
  bool isPositiveInfinity() const { return isValid() && (flags & kPositiveInfinity) != 0; }
  bool isNegativeInfinity() const { return isValid() && (flags & kNegativeInfinity) != 0; }
  /// Valid and neither infinite nor indefinite.
  bool isNumeric() const { return (flags & (kValid | kPositiveInfinity | kNegativeInfinity | kIndefinite)) == kValid; }

  /// ±infinity for infinite times, not-a-number for invalid and indefinite ones.
  double seconds() const;
  /// The time in another timescale, rounded half away from zero; an inexact result is flagged `kHasBeenRounded`.
  /// Special times are returned unchanged. Overflow gives the infinite time of its sign.
  MediaTime convertedToTimescale(std::int32_t newTimescale) const;
  /// For logs: "{3/600 = 0.005}", "{INVALID}", "{INDEFINITE}", "{+INFINITY}" or "{-INFINITY}".
  std::string description() const;

  friend TAVREL_API std::strong_ordering operator<=>(const MediaTime& left, const MediaTime& right);
  friend bool operator==(const MediaTime& left, const MediaTime& right) { return std::is_eq(left <=> right); }

  /// Exact if the least common multiple of the timescales fits 31 bits, else rounded to the larger timescale. An
  /// invalid operand gives invalid, else an indefinite one indefinite; infinities add as usual, and opposite ones give
  /// invalid.
  friend TAVREL_API MediaTime operator+(const MediaTime& left, const MediaTime& right);
  friend TAVREL_API MediaTime operator-(const MediaTime& left, const MediaTime& right);
};

/// The time from `start` up to, but not including, `start` + `duration`.
struct MediaTimeRange {
  MediaTime start;
  MediaTime duration;

  /// From 0 to infinity.
  static MediaTimeRange everything() { return {MediaTime::zero(), MediaTime::positiveInfinity()}; }

  MediaTime end() const { return start + duration; }
  bool contains(const MediaTime& time) const { return start <= time && time < end(); }
};

}  // namespace tavrel
