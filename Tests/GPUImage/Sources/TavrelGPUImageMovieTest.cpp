#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <random>
#include <thread>

#include "Support/GraphTestSupport.h"
#include "Support/ReaderMovies.h"

namespace tavrel {
namespace {

using test::ConsoleCapture;
using testing::ElementsAre;
using testing::HasSubstr;

/// A target that notes when frames come and how bright their middle is.
class MovieTarget : public test::RecordingTarget {
 public:
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer, Index) override {
    framebuffer_ = std::move(framebuffer);
    if (framebuffer_) framebuffer_->lock();
  }
  void newFrameReadyAtTime(MediaTime time, Index) override {
    times.push_back(time.seconds());
    arrivals.push_back(DisplayLink::hostTime());
    if (framebuffer_) {
      levels.push_back(middleOf(framebuffer_->texture(), framebuffer_->size()));
      framebuffer_->unlock();
    }
    framebuffer_.reset();
    if (onFrame) onFrame();
  }
  void endProcessing() override { ++ends; }

  std::vector<double> times;
  std::vector<double> arrivals;
  std::vector<int> levels;
  std::atomic<int> ends = 0;
  std::function<void()> onFrame;

 private:
  static int middleOf(GLuint texture, Size size) {
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    glBindFramebuffer(GL_FRAMEBUFFER, name);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    std::array<std::uint8_t, 4> pixel{};
    glReadPixels(static_cast<GLint>(size.width / 2), static_cast<GLint>(size.height / 2), 1, 1, GL_RGBA,
                 GL_UNSIGNED_BYTE, pixel.data());
    glDeleteFramebuffers(1, &name);
    return pixel[1];
  }

  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
};

class MovieDelegate : public TavrelGPUImageMovieDelegate {
 public:
  void didCompletePlayingMovie() override {
    if (++completions == 1) completed.set_value();
  }
  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime) override {
    return replacement ? replacement : pixelBuffer;
  }

  std::atomic<int> completions = 0;
  std::promise<void> completed;
  std::shared_ptr<PixelBuffer> replacement;
};

/// Keeps the sound it is given.
class SoundTarget : public TavrelGPUImageAudioTarget {
 public:
  bool hasAudioTrack() const override { return hasTrack; }
  void setHasAudioTrack(bool newValue) override { hasTrack = newValue; }
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) override { buffers.push_back(audioBuffer); }

  bool hasTrack = false;
  std::vector<std::shared_ptr<SampleBuffer>> buffers;
};

class MovieTest : public ::testing::Test {
 protected:
  /// Frames that get brighter by 6 of 255 from one to the next, at 25 a second.
  void makeRamp(const char* name, int frames, const std::string& encoding = "-c:v libx264 -qp 5 -bf 2 -g 8",
                const std::string& sound = "") {
    test::makeMovie(folder_ / name,
                    "-f lavfi -i \"color=black:size=64x48:rate=25:duration=" + std::to_string(frames / 25.0) +
                        ",format=gray,geq=lum='20+6*N',format=yuv420p\" " + sound + " " + encoding + " -t " +
                        std::to_string(frames / 25.0) + " OUT");
  }
  void connect(const std::shared_ptr<TavrelGPUImageMovie>& movie) {
    movie_ = movie;
    movie_->addTarget(target_);
    movie_->setDelegate(delegate_);
  }
  void openFile(const char* name) { connect(std::make_shared<TavrelGPUImageMovie>(folder_ / name)); }
  void openAsset(const char* name) {
    connect(std::make_shared<TavrelGPUImageMovie>(Asset::create(folder_ / name).value()));
  }
  void waitForTheEnd() {
    ASSERT_EQ(delegate_->completed.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  }

  test::ReaderFolder folder_;
  std::shared_ptr<MovieTarget> target_ = std::make_shared<MovieTarget>();
  std::shared_ptr<MovieDelegate> delegate_ = std::make_shared<MovieDelegate>();
  std::shared_ptr<TavrelGPUImageMovie> movie_;
};

std::vector<double> timesOf(int frames) {
  std::vector<double> times;
  for (int i = 0; i < frames; ++i) times.push_back(i / 25.0);
  return times;
}

TEST_F(MovieTest, AFileIsReadOnAnotherThreadAndAnAssetAtOnce) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 20));
  openFile("a.mp4");
  EXPECT_EQ(movie_->progress(), 0);
  EXPECT_EQ(movie_->asset(), nullptr);
  movie_->startProcessing();
  waitForTheEnd();
  EXPECT_THAT(target_->times, testing::Pointwise(testing::DoubleNear(1e-4), timesOf(20)));
  EXPECT_TRUE(std::is_sorted(target_->levels.begin(), target_->levels.end()));
  EXPECT_GT(target_->levels.back() - target_->levels.front(), 19 * 5);
  EXPECT_NE(movie_->asset(), nullptr);
  EXPECT_GE(target_->ends, 1);

  // A second run needs the delegate set again.
  EXPECT_EQ(movie_->delegate(), nullptr);
  openAsset("a.mp4");
  target_->times.clear();
  movie_->startProcessing();
  EXPECT_EQ(target_->times.size(), 20U);
  EXPECT_EQ(movie_->delegate(), nullptr);
  movie_->startProcessing();
  EXPECT_EQ(target_->times.size(), 40U);
  EXPECT_EQ(delegate_->completions, 1 + 1);
}

TEST_F(MovieTest, ProgressFollowsTheTimesOfTheFrames) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 20));
  openAsset("a.mp4");
  std::vector<float> progress;
  target_->onFrame = [&] { progress.push_back(movie_->progress()); };
  movie_->startProcessing();
  ASSERT_EQ(progress.size(), 20U);
  EXPECT_NEAR(progress[10], 0.5, 1e-4);
  EXPECT_NEAR(progress[5], 0.25, 1e-4);
}

TEST_F(MovieTest, ReverseDeliversTheLastPictureFirstWithTheTimesInOrder) {
  for (const int frames : {3, 30}) {
    target_ = std::make_shared<MovieTarget>();
    delegate_ = std::make_shared<MovieDelegate>();
    ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", frames, "-c:v libx264 -qp 5 -bf 2 -g 250"));
    openAsset("a.mp4");
    movie_->setReverseVideo(true);
    movie_->startProcessing();
    EXPECT_THAT(target_->times, testing::Pointwise(testing::DoubleNear(1e-4), timesOf(frames)));
    ASSERT_EQ(target_->levels.size(), static_cast<std::size_t>(frames));
    for (std::size_t i = 1; i < target_->levels.size(); ++i) {
      EXPECT_NEAR(target_->levels[i - 1] - target_->levels[i], 7, 3) << i;
    }
    EXPECT_EQ(delegate_->completions, 1);
    EXPECT_TRUE(movie_->videoEncodingIsFinished());
  }
}

TEST_F(MovieTest, FramesLeaveNoFasterThanTheyPlayAndLateOnesAtOnce) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 20));
  openFile("a.mp4");
  movie_->setPlayAtActualSpeed(true);
  double resumed = 0;
  target_->onFrame = [&] {
    if (target_->times.size() != 5) return;
    // One frame takes longer than three frames play.
    std::this_thread::sleep_for(std::chrono::milliseconds(140));
    resumed = DisplayLink::hostTime();
  };
  const double started = DisplayLink::hostTime();
  movie_->startProcessing();
  waitForTheEnd();
  ASSERT_EQ(target_->arrivals.size(), 20U);
  EXPECT_GT(target_->arrivals[5] - target_->arrivals[4], 0.139);
  // When a frame may leave, counted from the last one that was late. How much later it arrives is the machine's affair:
  // on a busy one the next frame may follow it at once.
  for (std::size_t i = 1; i < 20; ++i) {
    const double earliest =
        i < 5 ? started + 0.04 * static_cast<double>(i) : resumed + 0.04 * static_cast<double>(i - 5);
    EXPECT_GT(target_->arrivals[i], earliest - 0.001) << i;  // each wait is cut to whole microseconds
  }
  EXPECT_GT(target_->arrivals.back() - target_->arrivals.front(), 0.13 + 17 * 0.04);
}

TEST_F(MovieTest, RepeatingBeginsAgainUntilItIsEnded) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 10));
  openFile("a.mp4");
  movie_->setShouldRepeat(true);
  std::atomic<int> frames = 0;
  target_->onFrame = [&] { ++frames; };
  movie_->startProcessing();
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return frames >= 32; }, std::chrono::seconds(30)));
  EXPECT_EQ(delegate_->completions, 0);
  movie_->cancelProcessing();
  EXPECT_EQ(delegate_->completions, 1);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    ASSERT_GE(target_->times.size(), 30U);
    for (std::size_t i = 0; i < 30; ++i) EXPECT_NEAR(target_->times[i], static_cast<double>(i % 10) / 25, 1e-4);
  });
  // What was being read has ended by the time the frames stop.
  for (int last = -1; last != frames;) {
    last = frames;
    RunLoop::main().runFor(std::chrono::milliseconds(200));
  }
  // With an asset there is no repetition, and nothing is read.
  auto fromAsset = std::make_shared<TavrelGPUImageMovie>(Asset::create(folder_ / "a.mp4").value());
  fromAsset->setShouldRepeat(true);
  fromAsset->startProcessing();
  EXPECT_EQ(fromAsset->assetReader()->status(), AssetReaderStatus::reading);
}

TEST_F(MovieTest, TheDelegateMayReplaceThePicture) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 4));
  openAsset("a.mp4");
  delegate_->replacement = test::pixelBufferOf({32, 16, [](int, int) { return test::Pixel{9, 200, 9, 255}; }});
  movie_->setRunBenchmark(true);
  const ConsoleCapture console;
  movie_->startProcessing();
  EXPECT_THAT(target_->levels, ElementsAre(200, 200, 200, 200));
  EXPECT_EQ(target_->events.at(1).size, (Size{32, 16}));
  EXPECT_THAT(console.messages(), testing::Contains(testing::MatchesRegex("Current frame time : [0-9]+\\.[0-9]+ ms")));
}

TEST_F(MovieTest, SoundArrivesAsItIsStored) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 25, "-c:v libx264 -c:a aac", "-f lavfi -i sine=duration=1"));
  const auto sound = std::make_shared<SoundTarget>();
  openAsset("a.mp4");
  movie_->setAudioEncodingTarget(sound);
  EXPECT_TRUE(sound->hasTrack);
  movie_->startProcessing();
  EXPECT_EQ(target_->times.size(), 25U);
  ASSERT_GT(sound->buffers.size(), 40U);
  EXPECT_EQ(sound->buffers[0]->format()->codecName, "aac");
  EXPECT_TRUE(movie_->audioEncodingIsFinished());
  EXPECT_EQ(delegate_->completions, 1);
}

TEST_F(MovieTest, WhatCannotBeReadIsSaidOnTheConsole) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 5));
  openFile("a.mp4");
  const auto asset = Asset::create(folder_ / "a.mp4").value();
  std::filesystem::remove(folder_ / "a.mp4");
  const ConsoleCapture console;
  movie_->startProcessing();  // the loading fails without a word
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(console.messages().empty());
  connect(std::make_shared<TavrelGPUImageMovie>(asset));
  movie_->startProcessing();
  EXPECT_THAT(console.messages(), ElementsAre("Error reading from file at URL: "));
  EXPECT_EQ(target_->ends + delegate_->completions, 0);
}

TEST_F(MovieTest, APlayerItemIsShownAtTheDisplaysRate) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 30));
  const auto item = std::make_shared<PlayerItem>(Asset::create(folder_ / "a.mp4").value());
  if (TavrelGPUImageContext::supportsFastTextureUpload()) {
    // The two planes of a player item's pictures are no single texture.
    EXPECT_DEATH(
        {
          connect(std::make_shared<TavrelGPUImageMovie>(item));
          item->play();
          movie_->startProcessing();
          RunLoop::main().runFor(std::chrono::seconds(5));
        },
        "Camera failure");
    return;
  }
  connect(std::make_shared<TavrelGPUImageMovie>(item));
  movie_->startProcessing();
  std::atomic<int> frames = 0;
  target_->onFrame = [&] { ++frames; };
  RunLoop::main().runUntil([&] { return frames >= 1; }, std::chrono::seconds(5));
  EXPECT_EQ(frames, 1);  // paused at the first picture
  item->play();
  RunLoop::main().runFor(std::chrono::milliseconds(800));
  EXPECT_GE(frames, 8);
  EXPECT_LE(frames, 23);
  EXPECT_TRUE(std::is_sorted(target_->levels.begin(), target_->levels.end()));
  movie_->endProcessing();
  const int last = frames;
  RunLoop::main().runFor(std::chrono::milliseconds(200));
  EXPECT_EQ(frames, last);
  EXPECT_EQ(delegate_->completions, 1);
}

TEST_F(MovieTest, ACompositionIsPutTogetherAndMixed) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 25, "-c:v libx264 -qp 5 -c:a aac", "-f lavfi -i sine=duration=1"));
  const auto source = Asset::create(folder_ / "a.mp4").value();
  const auto composition = MutableComposition::create();
  const MediaTimeRange second = {MediaTime::zero(), MediaTime::make(1, 1)};
  ASSERT_TRUE(composition->insertTimeRange(second, *source, MediaTime::zero()).has_value());
  ASSERT_TRUE(composition->insertTimeRange(second, *source, MediaTime::make(1, 1)).has_value());
  const auto pictures = MutableVideoComposition::createWithPropertiesOfAsset(*composition);
  pictures->setRenderScale(0.5);
  const auto movie = std::make_shared<TavrelGPUImageMovieComposition>(composition, pictures, nullptr);
  const auto sound = std::make_shared<SoundTarget>();
  movie->setAudioEncodingTarget(sound);
  connect(movie);
  movie->startProcessing();
  EXPECT_EQ(pictures->renderScale(), 1);
  ASSERT_EQ(target_->times.size(), 50U);
  EXPECT_EQ(target_->levels[5], target_->levels[30]);
  std::int64_t frames = 0;
  for (const auto& buffer : sound->buffers) frames += buffer->numSamples();
  EXPECT_EQ(frames, 2 * 44100);
}

class PullTest : public MovieTest {
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

TEST_F(PullTest, EveryFrameIsWrittenOnceInTwoHundredRuns) {
  ASSERT_NO_FATAL_FAILURE(makeRamp("a.mp4", 6, "-c:v libx264 -qp 5 -bf 2 -c:a aac", "-f lavfi -i sine=duration=0.24"));
  for (int run = 0; run < 200; ++run) {
    ASSERT_NO_FATAL_FAILURE(transcode()) << run;
    if (run % 20 != 0) continue;
    test::OpenedReader pictures(folder_ / "out.mov", MediaType::video);
    EXPECT_EQ(pictures.readTimes().size(), 6U);
    test::OpenedReader sound(folder_ / "out.mov", MediaType::audio);
    EXPECT_FALSE(sound.readTimes().empty());
  }
}

TEST_F(PullTest, CancellingAtAnyMomentLeavesNothing) {
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
}  // namespace tavrel
