#include "GPUImage/Destinations/Private/MovieTimeline.h"

#include <gtest/gtest.h>

namespace tavrel {
namespace {

using enum MovieTimeline::Stream;

MediaTime tenths(std::int64_t value) { return MediaTime::make(value, 10); }

class MovieTimelineTest : public ::testing::Test {
 protected:
  /// The frame's place, to which the stream then comes; invalid for one that is left out.
  MediaTime sendFrame(MediaTime time) {
    const auto place = timeline_.placeOfFrame(time);
    if (place) timeline_.advance(video, *place);
    return place.value_or(MediaTime::invalid());
  }
  MediaTime sendSound(MediaTime time) {
    if (const auto cut = timeline_.timeToCut(audio, time)) time = time - *cut;
    timeline_.advance(audio, time);
    return time;
  }

  MovieTimeline timeline_;
};

TEST_F(MovieTimelineTest, EachPauseIsMeasuredOnceAndCutOutOfBothStreams) {
  sendFrame(tenths(10));
  sendSound(tenths(11));
  timeline_.pause();
  EXPECT_EQ(sendSound(tenths(31)), tenths(11));  // the gap since the last sound: 2 s
  EXPECT_EQ(sendFrame(tenths(32)), tenths(12));
  EXPECT_EQ(sendSound(tenths(33)), tenths(13));
  timeline_.pause();
  timeline_.pause();
  EXPECT_FALSE(sendFrame(tenths(62)).isValid());  // lands on the last frame: 3 s more
  EXPECT_EQ(sendFrame(tenths(63)), tenths(13));
  EXPECT_EQ(sendSound(tenths(64)), tenths(14));
}

TEST_F(MovieTimelineTest, APauseBeforeTheFirstSampleCutsNothing) {
  timeline_.pause();
  EXPECT_EQ(sendFrame(tenths(50)), tenths(50));
  EXPECT_EQ(sendSound(tenths(51)), tenths(51));
  timeline_.pause();
  EXPECT_EQ(sendSound(tenths(61)), tenths(51));
  EXPECT_EQ(sendFrame(tenths(62)), tenths(52));
}

TEST_F(MovieTimelineTest, APauseThatTookNoTimeIsMeasuredAnew) {
  sendFrame(tenths(10));
  timeline_.pause();
  EXPECT_FALSE(sendFrame(tenths(10)).isValid());
  EXPECT_EQ(sendFrame(tenths(11)), tenths(11));
  timeline_.pause();
  EXPECT_FALSE(sendFrame(tenths(31)).isValid());
  EXPECT_EQ(sendFrame(tenths(32)), tenths(12));
}

TEST_F(MovieTimelineTest, FramesThatWouldBreakTheFileHaveNoPlace) {
  EXPECT_FALSE(sendFrame(MediaTime::invalid()).isValid());
  EXPECT_FALSE(sendFrame(MediaTime::indefinite()).isValid());
  EXPECT_TRUE(sendFrame(tenths(10)).isValid());
  EXPECT_FALSE(sendFrame(MediaTime::make(100, 100)).isValid());
  EXPECT_EQ(sendFrame(tenths(9)), tenths(9));  // earlier ones are the file's to refuse
}

TEST_F(MovieTimelineTest, TheLengthIsThatOfThePicturesOrElseOfTheSound) {
  sendSound(tenths(30));
  EXPECT_EQ(timeline_.duration(), MediaTime::zero());
  timeline_.beginAt(tenths(10));
  EXPECT_EQ(timeline_.duration(), tenths(20));
  sendFrame(tenths(15));
  EXPECT_EQ(timeline_.duration(), tenths(5));
  timeline_.restart();
  EXPECT_FALSE(timeline_.startTime().isValid());
  EXPECT_EQ(timeline_.duration(), MediaTime::zero());
}

}  // namespace
}  // namespace tavrel
