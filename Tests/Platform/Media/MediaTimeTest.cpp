#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Platform/Media/MediaTime.h"

namespace tavrel {
namespace {

const MediaTime kHalf = MediaTime::make(1, 2);

TEST(MediaTime, TimesCompareByWhatTheyMean) {
  EXPECT_EQ(kHalf, MediaTime::make(300, 600));
  EXPECT_LT(MediaTime::make(333333333, 1000000000), MediaTime::make(1, 3));
  EXPECT_LT(MediaTime::negativeInfinity(), MediaTime::make(std::numeric_limits<std::int64_t>::min() + 1, 1));
  EXPECT_LT(kHalf, MediaTime::indefinite());
  EXPECT_LT(MediaTime::indefinite(), MediaTime::positiveInfinity());
  EXPECT_LT(MediaTime::positiveInfinity(), MediaTime::invalid());
  EXPECT_EQ(MediaTime::indefinite(), MediaTime::indefinite());
  EXPECT_LT((MediaTime{9, 1, MediaTime::kValid, 0}), (MediaTime{1, 1, MediaTime::kValid, 1}));
}

TEST(MediaTime, SumsAreExactWhereATimescaleServesBoth) {
  EXPECT_EQ(MediaTime::make(1, 30) + MediaTime::make(1, 48000), MediaTime::make(1601, 48000));
  EXPECT_EQ((MediaTime::make(1, 30) + MediaTime::make(1, 48000)).timescale, 48000);
  const MediaTime camera = MediaTime::make(176'000'000'012'345'678, 100'000'000);
  EXPECT_EQ((camera - MediaTime::make(2, 1)).value, 176'000'000'012'345'678 - 200'000'000);
  // 1000003 · 99999989 does not fit: rounded in the finer of the two.
  const MediaTime rounded = MediaTime::make(1, 1'000'003) + MediaTime::make(1, 99'999'989);
  EXPECT_EQ(rounded.timescale, 99'999'989);
  EXPECT_EQ(rounded.value, 101);
  EXPECT_NE(rounded.flags & MediaTime::kHasBeenRounded, 0U);
}

TEST(MediaTime, SpecialTimesSpreadThroughSums) {
  EXPECT_FALSE((kHalf + MediaTime::invalid()).isValid());
  EXPECT_TRUE((kHalf - MediaTime::indefinite()).isIndefinite());
  EXPECT_TRUE((kHalf - MediaTime::negativeInfinity()).isPositiveInfinity());
  EXPECT_FALSE((MediaTime::positiveInfinity() - MediaTime::positiveInfinity()).isValid());
  EXPECT_TRUE((MediaTime::make(std::numeric_limits<std::int64_t>::max(), 1) + kHalf).isPositiveInfinity());
}

TEST(MediaTime, ConversionsRoundHalfAwayFromZero) {
  EXPECT_EQ(MediaTime::make(5, 10).convertedToTimescale(1).value, 1);
  EXPECT_EQ(MediaTime::make(-5, 10).convertedToTimescale(1).value, -1);
  EXPECT_EQ(MediaTime::make(4, 10).convertedToTimescale(1).value, 0);
  EXPECT_EQ(kHalf.convertedToTimescale(90000).flags, MediaTime::kValid);
  EXPECT_EQ(MediaTime::fromSeconds(1.0 / 3, 600).value, 200);
  EXPECT_FALSE(MediaTime::fromSeconds(std::nan(""), 600).isValid());
  EXPECT_TRUE(MediaTime::fromSeconds(1e30, 600).isPositiveInfinity());
  EXPECT_FALSE(MediaTime::make(1, 0).isValid());
  EXPECT_DOUBLE_EQ(MediaTime::make(-3, 4).seconds(), -0.75);
  EXPECT_TRUE(std::isnan(MediaTime::indefinite().seconds()));
  EXPECT_EQ(MediaTime::make(3, 600).description(), "{3/600 = 0.005}");
}

}  // namespace
}  // namespace tavrel
