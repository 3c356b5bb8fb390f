// Live recordings take what they can and count the rest; others ask their sources for data.
#include <atomic>
#include <thread>

#include "MovieWriterTestSupport.h"

namespace tavrel::test {
namespace {

class MovieWriterPaceTest : public MovieWriterTest {
 protected:
  /// Keeps the writer's queue busy until the result is set.
  std::promise<void> holdTheWriter() {
    std::promise<void> release;
    TavrelRunAsynchronouslyOnContextQueue(*writer_->movieWriterContext(),
                                          [future = release.get_future().share()] { future.wait(); });
    return release;
  }
  /// Frames 0 to 39, all but the first of them while the writer is busy: until the result is set.
  std::promise<void> floodTheHeldWriter() {
    sendFrame(MediaTime::make(0, 30));
    std::promise<void> release = holdTheWriter();
    for (int i = 1; i < 40; ++i) {
      input_->processCVPixelBuffer(pixelBufferOf(gray(i)), MediaTime::make(i, 30), true);
    }
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    return release;
  }
};

TEST_F(MovieWriterPaceTest, ALiveRecordingNeverWaitsButDropsAndSaysSo) {
  const ConsoleCapture console;
  create();
  EXPECT_TRUE(writer_->encodingLiveVideo());
  writer_->startRecording();
  std::promise<void> release = floodTheHeldWriter();
  EXPECT_GE(writer_->droppedVideoFrames(), 20U);
  EXPECT_TRUE(console.contains("1: Had to drop a video frame: {"));
  release.set_value();
  finish();
  EXPECT_EQ(frameSeconds().size() + writer_->droppedVideoFrames(), 40U);
}

TEST_F(MovieWriterPaceTest, LiveSoundWaitsForAPictureThatTakesSeconds) {
  constexpr int kPiece = 256;
  constexpr int kPieces = 3 * kRate / kPiece;
  create();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  std::promise<void> release = holdTheWriter();
  for (int i = 0; i < kPieces; ++i) sendSound(MediaTime::make(i * kPiece, kRate), kPiece);
  release.set_value();
  finish();
  EXPECT_EQ(writer_->droppedAudioBuffers(), 0U);
  EXPECT_NEAR(soundLengthAndLargestStep().first, 3, 0.03);
}

TEST_F(MovieWriterPaceTest, StatisticsTellDropsByReasonAndWhatIsInTheFile) {
  const ConsoleCapture console;
  create();
  writer_->startRecording();
  ASSERT_TRUE(TavrelTracing::start().has_value());
  std::promise<void> release = floodTheHeldWriter();
  release.set_value();
  finish();
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  EXPECT_EQ(statistics.framesIn, 40U);
  EXPECT_EQ(statistics.dropped("writer"), writer_->droppedVideoFrames());
  ASSERT_FALSE(statistics.drops.empty());
  EXPECT_EQ(statistics.drops[0].reason, "queueFull");
  EXPECT_GE(statistics.drops[0].count, 20U);
  EXPECT_EQ(statistics.framesOut, frameSeconds().size());
  EXPECT_EQ(statistics.latencyToFile.count, statistics.framesOut);
}

TEST_F(MovieWriterPaceTest, StatisticsTellHowFarSoundIsAhead) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  ASSERT_TRUE(TavrelTracing::start().has_value());
  sendFrame(MediaTime::make(0, 30));  // no sound yet: does not count
  for (int i = 0; i < 30; ++i) sendSound(MediaTime::make(i * 1024, kRate));
  sendFrame(MediaTime::make(3, 30));
  sendFrame(MediaTime::make(30, 30));
  finish();
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const auto lead = TavrelTracing::statistics().audioLead;
  constexpr double kSoundEnd = 30.0 * 1024 / kRate;
  EXPECT_EQ(lead.count, 2U);
  EXPECT_NEAR(lead.most, kSoundEnd - 0.1, 1e-6);
  EXPECT_NEAR(lead.least, kSoundEnd - 1, 1e-6);
  EXPECT_NEAR(lead.last, kSoundEnd - 1, 1e-6);
  EXPECT_EQ(TavrelTracing::statistics().soundsOut, 30U);
}

TEST_F(MovieWriterPaceTest, TracksPullTheirDataUntilTheSourceEnds) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  std::atomic<int> frames = 0;
  std::atomic<int> sounds = 0;
  std::promise<void> finished;
  std::atomic<int> ended = 0;
  const auto oneEnded = [&] {
    if (++ended == 2) finished.set_value();
    return false;
  };
  std::atomic<bool> videoEnded = false;
  std::atomic<bool> audioEnded = false;
  writer_->setVideoInputReadyCallback([&] {
    if (frames >= 60) return videoEnded.exchange(true) ? false : oneEnded();
    input_->processCVPixelBuffer(pixelBufferOf(gray(frames * 4)), MediaTime::make(frames, 30), true);
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // a source answers false after its last frame's delivery only
    ++frames;
    return true;
  });
  writer_->setAudioInputReadyCallback([&] {
    if (sounds >= 94) return audioEnded.exchange(true) ? false : oneEnded();
    sendSound(MediaTime::make(sounds * 1024, kRate));
    ++sounds;
    return true;
  });
  writer_->startRecording();
  writer_->enableSynchronizationCallbacks();
  ASSERT_EQ(finished.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  settle();
  finish();
  EXPECT_EQ(frameSeconds().size(), 60U);
  EXPECT_NEAR(soundLengthAndLargestStep().first, 94 * 1024.0 / kRate, 0.05);
}

TEST_F(MovieWriterPaceTest, AReadyCallbackThatWasReplacedIsAskedNoMore) {
  createNotLive();
  std::atomic<int> asked = 0;
  writer_->setVideoInputReadyCallback([&] { return ++asked > 0; });
  writer_->startRecording();
  writer_->enableSynchronizationCallbacks();
  while (asked < 10) std::this_thread::yield();
  std::promise<void> replaced;
  writer_->setVideoInputReadyCallback([&, isFirst = true]() mutable {
    if (std::exchange(isFirst, false)) replaced.set_value();
    return false;
  });
  ASSERT_EQ(replaced.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  const int last = asked;
  settle();
  EXPECT_EQ(asked, last);
  writer_->cancelRecording();
}

}  // namespace
}  // namespace tavrel::test
