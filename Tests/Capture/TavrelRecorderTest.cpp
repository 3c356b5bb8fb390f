#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>

#include "RecorderFixture.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

TEST_F(TavrelRecorderTest, SwitchingCamerasLeavesNoBlackFrame) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  runFor(700ms);
  for (const bool isBlurred : {true, false, true}) {
    recorder_->camera()->setBlurSwitch(isBlurred);
    recorder_->camera()->switchCamera();
    runFor(700ms);
  }
  EXPECT_EQ(recorder_->camera()->devicePosition(), CaptureDevicePosition::back);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  // The blurred ones come from no device.
  EXPECT_EQ(seen.frameTimes.size(), recording_.statistics.framesWritten);
  EXPECT_GT(seen.frameTimes.back(), 2.5);
  for (std::size_t i = 1; i < seen.frameTimes.size(); ++i) EXPECT_GT(seen.frameTimes[i], seen.frameTimes[i - 1]);
  EXPECT_GT(seen.darkest, 40);
  const auto blurred = std::count(seen.counters.begin(), seen.counters.end(), std::nullopt);
  EXPECT_GE(blurred, 2);
  EXPECT_LE(blurred, 4);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.15);
}

TEST_F(TavrelRecorderTest, FilesFollowEachOtherWithPausesCutOut) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  ASSERT_TRUE(moreFrames(10));
  const auto second = recorder_->startWriting(folder_ / "second.mov");
  ASSERT_FALSE(second.has_value());
  EXPECT_TRUE(second.error() == TavrelRecorderErrorCode::alreadyWriting) << second.error().description;

  // The next one begins while the first one is being completed.
  std::vector<TavrelRecording> finished;
  const auto keep = [&](const Expected<TavrelRecording>& recording) { finished.push_back(recording.value()); };
  recorder_->finishWritingWithCompletion(keep);
  EXPECT_FALSE(recorder_->isWriting());
  ASSERT_NO_FATAL_FAILURE(startWriting("second.mkv"));
  ASSERT_TRUE(moreFrames(10));
  recorder_->pause();
  EXPECT_TRUE(recorder_->isPaused());
  runFor(700ms);
  recorder_->resume();
  ASSERT_TRUE(moreFrames(10));
  recorder_->stop();
  recorder_->finishWritingWithCompletion(keep);
  ASSERT_TRUE(runUntil([&] { return finished.size() == 2; }));
  for (const TavrelRecording& each : finished) {
    const auto seen = RecordingObservation::of(each.file);
    ASSERT_EQ(seen.error, "") << each.file;
    EXPECT_FALSE(each.error);
    EXPECT_EQ(seen.frameTimes.size(), each.statistics.framesWritten) << each.file;
    EXPECT_NEAR(seen.frameTimes.back(), each.seconds, 0.002);
    EXPECT_EQ(each.playableSeconds, each.seconds);
    for (std::size_t i = 1; i < seen.frameTimes.size(); ++i) {
      EXPECT_LT(seen.frameTimes[i] - seen.frameTimes[i - 1], 0.5) << each.file;
    }
  }

  // Nothing to finish; no such type; what is given up leaves nothing.
  const auto nothing = finishMovie(*recorder_);
  ASSERT_FALSE(nothing.has_value());
  EXPECT_TRUE(nothing.error() == TavrelRecorderErrorCode::notWriting) << nothing.error().description;
  const auto unknown = recorder_->startWriting(folder_ / "movie.avi");
  ASSERT_FALSE(unknown.has_value());
  EXPECT_TRUE(unknown.error() == TavrelRecorderErrorCode::unknownFileType) << unknown.error().description;
  ASSERT_NO_FATAL_FAILURE(startWriting("third.mp4"));
  ASSERT_TRUE(startDevices(*recorder_));
  ASSERT_TRUE(moreFrames(3));
  recorder_->cancelWriting();
  EXPECT_FALSE(std::filesystem::exists(folder_ / "third.mp4"));
}

TEST_F(TavrelRecorderTest, TheLimitIsKeptToTheFrame) {
  std::atomic<double> last = 0;
  ASSERT_NO_FATAL_FAILURE(make());
  recorder_->setFrameHandler([&](double seconds) { last = seconds; });
  ASSERT_NO_FATAL_FAILURE(startWriting("movie.mp4", {.durationLimit = 1}));
  ASSERT_TRUE(startDevices(*recorder_));
  ASSERT_TRUE(hears(TavrelRecorderEvent::Kind::limitReached));
  ASSERT_TRUE(runUntil([&] { return last > 1.2; }));
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_LE(seen.frameTimes.back(), 1 - 0.5 / 30);
  EXPECT_GT(seen.frameTimes.back(), 0.8);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, 1, 0.05);
  EXPECT_EQ(events_.size(), 1U) << "said once";
}

TEST_F(TavrelRecorderTest, ARecordingWithoutAPictureSaysWhyThereIsNone) {
  auto& bench = VirtualCaptureSystem::shared();
  for (const bool isUnplugged : {true, false}) {
    ASSERT_NO_FATAL_FAILURE(make());
    ASSERT_NO_FATAL_FAILURE(startWriting());
    // Unplugged before it starts; or not started at all.
    if (isUnplugged) {
      bench.setConnected(VirtualCaptureSystem::kFrontCamera, false);
      test::startDevices(*recorder_);
      ASSERT_TRUE(hears(TavrelRecorderEvent::Kind::cameraLost));
    }
    recorder_->stop();
    const auto finished = test::finishMovie(*recorder_);
    ASSERT_TRUE(finished.has_value());
    ASSERT_TRUE(finished->error);
    if (isUnplugged) {
      EXPECT_EQ(finished->error->domain, "capture");
      EXPECT_EQ(finished->error->description, events_.back().error->description);
    } else {
      EXPECT_EQ(finished->error->description,
                "no picture came from the camera while it was being recorded; it delivers BGRA 320x240, 30 frames a "
                "second, process buffers");
    }
    EXPECT_FALSE(std::filesystem::exists(finished->file));
    bench.setConnected(VirtualCaptureSystem::kFrontCamera, true);
  }
}

TEST_F(TavrelRecorderTest, ALostDeviceIsSaidAndTheOtherOneGoesOn) {
  using Kind = TavrelRecorderEvent::Kind;
  auto& bench = VirtualCaptureSystem::shared();
  ASSERT_NO_FATAL_FAILURE(startRecording());
  const struct {
    std::string_view device;
    Kind lost;
    Kind back;
  } turns[] = {{VirtualCaptureSystem::kFrontCamera, Kind::cameraLost, Kind::cameraBack},
               {VirtualCaptureSystem::kMicrophone, Kind::microphoneLost, Kind::microphoneBack}};
  for (const auto& turn : turns) {
    events_.clear();
    bench.setConnected(turn.device, false);
    ASSERT_TRUE(hears(turn.lost)) << turn.device;
    EXPECT_TRUE(events_.front().error) << turn.device;
    runFor(300ms);
    bench.setConnected(turn.device, true);
    ASSERT_TRUE(hears(turn.back)) << turn.device;
    EXPECT_EQ(events_.size(), 2U) << turn.device;
    ASSERT_TRUE(moreFrames(3));
  }
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.5);
}

TEST_F(TavrelRecorderTest, AFullDiskIsSaidAndWhatWasRecordedPlays) {
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_NO_FATAL_FAILURE(startRecording());
  const rlimit small = {700'000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const bool isSaid = hears(TavrelRecorderEvent::Kind::writingBrokeOff);
  const auto finished = finishMovie(*recorder_);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  ASSERT_TRUE(isSaid);
  ASSERT_TRUE(events_.front().error);
  ASSERT_TRUE(finished.has_value() && finished->error);
  EXPECT_EQ(finished->error->domain, "posix");
  EXPECT_EQ(finished->error->code, EFBIG);
  EXPECT_GT(finished->playableSeconds, 0);
  const auto seen = RecordingObservation::of(finished->file);
  ASSERT_EQ(seen.error, "");
  EXPECT_GE(seen.frameTimes.back() + 0.15, finished->playableSeconds);

  // The next one is none the worse for it.
  ASSERT_NO_FATAL_FAILURE(startWriting("next.mov"));
  ASSERT_TRUE(startDevices(*recorder_));
  ASSERT_TRUE(moreFrames(5));
  EXPECT_EQ(finish().error, "");
}

TEST_F(TavrelRecorderTest, DevicesThatCannotBeHadAreSaid) {
  for (const TavrelRecorderConfiguration& configuration :
       {TavrelRecorderConfiguration{.camera = "side"}, TavrelRecorderConfiguration{.microphone = "ear"}}) {
    const auto refused = TavrelRecorder::create(configuration);
    ASSERT_FALSE(refused.has_value());
    EXPECT_EQ(refused.error().domain, "capture");
  }
  VirtualCaptureSystem::shared().setInputRefusal(
      [](const CaptureDevice& device) { return device.mediaType() == MediaType::video; });
  const auto refused = TavrelRecorder::create({});
  VirtualCaptureSystem::shared().setInputRefusal({});
  ASSERT_FALSE(refused.has_value());
  EXPECT_TRUE(refused.error() == TavrelRecorderErrorCode::cameraUnavailable) << refused.error().description;

  VirtualCaptureSystem::shared().setAccessGranted(false);
  for (const char* microphone : {"default", ""}) {
    ASSERT_NO_FATAL_FAILURE(make({.microphone = microphone, .size = {320, 240}}));
    std::optional<Error> said;
    bool isAnswered = false;
    recorder_->startWithCompletion([&](const std::optional<Error>& error) {
      said = error;
      isAnswered = true;
    });
    ASSERT_TRUE(runUntil([&] { return isAnswered; }));
    ASSERT_TRUE(said);
    EXPECT_TRUE(*said ==
                (*microphone ? TavrelRecorderErrorCode::microphoneRefused : TavrelRecorderErrorCode::cameraRefused))
        << said->description;
  }
}

TEST_F(TavrelRecorderTest, ASnapshotIsNotInTheMovie) {
  ASSERT_NO_FATAL_FAILURE(startRecording({.microphone = "", .size = {320, 240}}));
  std::shared_ptr<Image> picture;
  recorder_->snapshotWithCompletion([&](std::shared_ptr<Image> image, const std::optional<Error>&) {
    EXPECT_TRUE(RunLoop::isMainThread());
    picture = std::move(image);
  });
  ASSERT_TRUE(runUntil([&] { return picture != nullptr; }));
  EXPECT_EQ(picture->width(), 320U);
  const auto finished = finishMovie(*recorder_);
  ASSERT_TRUE(finished.has_value());
  EXPECT_EQ(finished->statistics.framesWritten + finished->statistics.lostInWriter,
            recorder_->camera()->statistics().processed);
}

}  // namespace
}  // namespace tavrel::test
