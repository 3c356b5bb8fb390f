#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "MovieTestSupport.h"

namespace tavrel::test {
namespace {

using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::Pointwise;

/// Keeps the sound it is given.
class SoundTarget : public TavrelGPUImageAudioTarget {
 public:
  bool hasAudioTrack() const override { return hasTrack; }
  void setHasAudioTrack(bool newValue) override { hasTrack = newValue; }
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) override { buffers.push_back(audioBuffer); }

  bool hasTrack = false;
  std::vector<std::shared_ptr<SampleBuffer>> buffers;
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
  EXPECT_THAT(target_->times, Pointwise(DoubleNear(1e-4), timesOf(20)));
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

TEST_F(MovieTest, MoreMoviesPlayAtOnceThanTheGlobalQueueHasThreads) {
  makeMovie(folder_ / "a.mp4", "-f lavfi -i color=black:size=64x48:rate=10:duration=60 -c:v libx264 OUT");
  struct Player {
    std::shared_ptr<MovieTarget> target = std::make_shared<MovieTarget>();
    std::shared_ptr<MovieDelegate> delegate = std::make_shared<MovieDelegate>();
    std::shared_ptr<TavrelGPUImageMovie> movie;
  };
  std::vector<Player> players(std::max(4U, std::thread::hardware_concurrency()) + 2);
  std::atomic<std::size_t> begun = 0;
  std::promise<void> allHaveBegun;
  for (Player& player : players) {
    player.target->onFrame = [&, target = player.target.get()] {
      if (target->times.size() == 1 && ++begun == players.size()) allHaveBegun.set_value();
    };
    player.movie = std::make_shared<TavrelGPUImageMovie>(folder_ / "a.mp4");
    player.movie->setPlayAtActualSpeed(true);
    player.movie->addTarget(player.target);
    player.movie->setDelegate(player.delegate);
    player.movie->startProcessing();
  }
  const bool havePlayed = allHaveBegun.get_future().wait_for(std::chrono::seconds(120)) == std::future_status::ready;
  for (const Player& player : players) EXPECT_EQ(player.delegate->completions, 0) << "while others had not begun";
  EXPECT_TRUE(havePlayed);
  for (Player& player : players) {
    player.movie->cancelProcessing();
    // It keeps itself while its last frame is under way.
    const std::weak_ptr<TavrelGPUImageMovie> reading = std::exchange(player.movie, nullptr);
    while (!reading.expired()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
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
    EXPECT_THAT(target_->times, Pointwise(DoubleNear(1e-4), timesOf(frames)));
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
  delegate_->replacement = pixelBufferOf({32, 16, [](int, int) { return Pixel{9, 200, 9, 255}; }});
  movie_->setRunBenchmark(true);
  const ConsoleCapture console;
  movie_->startProcessing();
  EXPECT_THAT(target_->levels, ElementsAre(200, 200, 200, 200));
  EXPECT_EQ(target_->events.at(1).size, (Size{32, 16}));
  EXPECT_THAT(console.messages(),
              ::testing::Contains(::testing::MatchesRegex("Current frame time : [0-9]+\\.[0-9]+ ms")));
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

}  // namespace
}  // namespace tavrel::test
