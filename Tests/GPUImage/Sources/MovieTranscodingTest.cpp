// A movie from file to file: the writer asks, and gets each frame once.
#include <random>
#include <thread>

#include "MovieTestSupport.h"

namespace tavrel::test {
namespace {

class MovieTranscodingTest : public MovieTest {
 protected:
  void makeWriter(bool isPassedThrough = true) {
    writer_ = std::make_shared<TavrelGPUImageMovieWriter>(folder_ / "out.mov", Size{64, 48});
    writer_->setShouldPassthroughAudio(isPassedThrough);
    openFile("a.mp4");
    movie_->removeTarget(target_);
    movie_->addTarget(writer_);
    movie_->setAudioEncodingTarget(writer_);
    movie_->enableSynchronizedEncodingUsingMovieWriter(writer_);
    EXPECT_FALSE(writer_->encodingLiveVideo());
    EXPECT_TRUE(writer_->hasAudioTrack());
  }
  void transcode() {
    makeWriter();
    std::promise<void> ended;
    writer_->setCompletionBlock([&] { ended.set_value(); });
    writer_->startRecording();
    movie_->startProcessing();
    ASSERT_EQ(ended.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    std::promise<void> finished;
    writer_->finishRecordingWithCompletionHandler([&] { finished.set_value(); });
    ASSERT_EQ(finished.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::completed);
  }

  std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
};

TEST_F(MovieTranscodingTest, EveryFrameIsWrittenOnceInTwoHundredRuns) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 6, "-c:v libx264 -qp 5 -bf 2 -c:a aac", "-f lavfi -i sine=duration=0.24"));
  for (int run = 0; run < 200; ++run) {
    ASSERT_NO_FATAL_FAILURE(transcode()) << run;
    if (run % 20 != 0) continue;
    OpenedReader pictures(folder_ / "out.mov", MediaType::video);
    EXPECT_EQ(pictures.readTimes().size(), 6U);
    OpenedReader sound(folder_ / "out.mov", MediaType::audio);
    EXPECT_FALSE(sound.readTimes().empty());
  }
}

TEST_F(MovieTranscodingTest, CancellingAtAnyMomentLeavesNothing) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 30, "-c:v libx264 -qp 5 -bf 2 -c:a aac", "-f lavfi -i sine=duration=1.2"));
  std::mt19937 random(7);
  for (int run = 0; run < 100; ++run) {
    makeWriter();
    movie_->setReverseVideo(run % 3 == 0);
    writer_->startRecording();
    movie_->startProcessing();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60'000));
    movie_->cancelProcessing();
    writer_->cancelRecording();
    EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::cancelled) << run;
    const std::weak_ptr<TavrelGPUImageMovie> weakMovie = movie_;
    const std::weak_ptr<TavrelGPUImageMovieWriter> weakWriter = writer_;
    movie_.reset();
    writer_.reset();
    for (int wait = 0; wait < 1000 && !(weakMovie.expired() && weakWriter.expired()); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(weakMovie.expired() && weakWriter.expired()) << run;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "out.mov")) << run;
  }
}

}  // namespace
}  // namespace tavrel::test
