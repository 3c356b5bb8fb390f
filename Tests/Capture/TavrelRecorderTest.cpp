#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <complex>
#include <csignal>
#include <fstream>
#include <numbers>

#include "Support/CameraTestSupport.h"
#include "Support/RecorderTestSupport.h"
#include "Support/RecordingObservation.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::RecordingObservation;

constexpr int kToneRate = 48000;
constexpr double kTone = 440;

/// Ten seconds of a pure tone, as a WAV file of 16-bit samples.
void writeTone(const std::filesystem::path& file) {
  std::vector<std::int16_t> samples(std::size_t{kToneRate} * 10);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] =
        static_cast<std::int16_t>(16000 * std::sin(2 * std::numbers::pi * kTone * static_cast<double>(i) / kToneRate));
  }
  const auto bytes = static_cast<std::uint32_t>(samples.size() * 2);
  std::ofstream stream(file, std::ios::binary);
  const auto put = [&](auto value) { stream.write(reinterpret_cast<const char*>(&value), sizeof(value)); };
  stream << "RIFF";
  put(bytes + 36);
  stream << "WAVEfmt ";
  put(std::uint32_t{16});
  put(std::uint16_t{1});  // PCM
  put(std::uint16_t{1});  // mono
  put(std::uint32_t{kToneRate});
  put(std::uint32_t{kToneRate} * 2);
  put(std::uint16_t{2});
  put(std::uint16_t{16});
  stream << "data";
  put(bytes);
  stream.write(reinterpret_cast<const char*>(samples.data()), bytes);
}

/// The tone in each 10 ms, as a vector that stands still while the tone goes on undisturbed.
std::vector<std::complex<double>> tonesOf(const std::vector<float>& sound) {
  constexpr std::size_t kWindow = kToneRate / 100;
  std::vector<std::complex<double>> tones;
  for (std::size_t first = 0; first + kWindow <= sound.size(); first += kWindow) {
    std::complex<double> sum;
    for (std::size_t i = first; i < first + kWindow; ++i) {
      sum +=
          std::polar(static_cast<double>(sound[i]), -2 * std::numbers::pi * kTone * static_cast<double>(i) / kToneRate);
    }
    tones.push_back(2.0 * sum / static_cast<double>(kWindow));
  }
  return tones;
}

class TavrelRecorderTest : public test::CaptureClassTest {
 protected:
  TavrelRecorderTest()
      : folder_(std::filesystem::temp_directory_path() / ("tavrel-recorder-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~TavrelRecorderTest() override {
    recorder_.reset();
    std::filesystem::remove_all(folder_);
  }

  void make(const TavrelRecorderConfiguration& configuration = {.size = {320, 240}}) {
    auto made = TavrelRecorder::create(configuration);
    ASSERT_TRUE(made.has_value()) << made.error().description;
    recorder_ = std::move(*made);
    recorder_->setEventHandler([this](const TavrelRecorderEvent& event) { events_.push_back(event); });
  }
  void startWriting(const char* name = "movie.mov", const TavrelRecordingOptions& options = {}) {
    const auto writing = recorder_->startWriting(folder_ / name, options);
    ASSERT_TRUE(writing.has_value()) << writing.error().description;
  }
  void startRecording(const TavrelRecorderConfiguration& configuration = {.size = {320, 240}}) {
    ASSERT_NO_FATAL_FAILURE(make(configuration));
    ASSERT_NO_FATAL_FAILURE(startWriting());
    ASSERT_TRUE(test::startDevices(*recorder_));
    ASSERT_TRUE(moreFrames(2));
  }
  bool moreFrames(std::uint64_t count) const {
    return runUntil([this, until = recorder_->statistics().framesWritten + count] {
      return recorder_->statistics().framesWritten >= until;
    });
  }
  RecordingObservation finish() {
    const auto finished = test::finishMovie(*recorder_);
    EXPECT_TRUE(finished.has_value());
    if (!finished) return {};
    recording_ = *finished;
    EXPECT_FALSE(recording_.error) << recording_.error->description;
    return RecordingObservation::of(recording_.file);
  }
  bool hears(TavrelRecorderEvent::Kind kind) const {
    return runUntil([this, kind] {
      return std::any_of(events_.begin(), events_.end(), [kind](const auto& event) { return event.kind == kind; });
    });
  }

  const std::filesystem::path folder_;
  std::shared_ptr<TavrelRecorder> recorder_;
  TavrelRecording recording_;
  std::vector<TavrelRecorderEvent> events_;
};

TEST_F(TavrelRecorderTest, FlashAndBeepStandTogetherAndEveryFrameIsAccountedFor) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  runFor(4500ms);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(seen.frameTimes.size(), recording_.statistics.framesWritten);
  EXPECT_EQ(recording_.statistics.soundLostInWriter, 0U);
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 2U);
  // A frame is stamped when it arrives, which on a busy machine may be late. What both tracks are off shows in each.
  std::vector<double> sizes;
  for (const auto& offset : offsets) sizes.push_back(std::abs(offset.seconds));
  EXPECT_LE(*std::min_element(sizes.begin(), sizes.end()), 0.020) << ::testing::PrintToString(sizes);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.5);
}

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

// Sound is stamped when the main thread takes it, and applications keep that busy.
TEST_F(TavrelRecorderTest, ABusyMainThreadIsNotHeard) {
  const auto tone = folder_ / "tone.wav";
  writeTone(tone);
  const auto device = CaptureDevice::addFile(tone, MediaType::audio);
  ASSERT_TRUE(device.has_value()) << device.error().description;
  ASSERT_NO_FATAL_FAILURE(startRecording({.microphone = (*device)->uniqueID(), .size = {320, 240}}));
  runFor(300ms);
  for (const auto pause : {4ms, 8ms, 15ms, 30ms, 60ms, 120ms, 200ms}) {
    std::this_thread::sleep_for(pause);
    runFor(300ms);
  }
  const RecordingObservation seen = finish();
  VirtualCaptureSystem::shared().removeFiles();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(recording_.statistics.soundLostInWriter, 0U);
  const auto tones = tonesOf(seen.sound);
  ASSERT_GT(tones.size(), 250U);
  // Where the sound begins it is placed by its first buffer, whose time may be late.
  std::string heard;
  for (std::size_t i = 20; i + 10 < tones.size(); ++i) {
    const bool isUndisturbed = std::abs(tones[i]) > 0.4 && std::abs(std::arg(tones[i] / tones[i - 1])) < 0.4;
    if (!isUndisturbed) heard += std::to_string(i * 10) + " ms ";
  }
  EXPECT_EQ(heard, "");
}

// Without real time nothing is late: what is left is what the recorder makes of the stamps.
TEST_F(TavrelRecorderTest, SoundStandsWhereItWasHeard) {
  const auto clock = std::make_shared<FastClock>();
  VirtualCaptureSystem::shared().setClock(clock);
  ASSERT_NO_FATAL_FAILURE(make());
  ASSERT_NO_FATAL_FAILURE(startWriting("movie.mov", {.settings = {{kTavrelEncodingLiveVideoKey, false}}}));
  ASSERT_TRUE(test::startDevices(*recorder_));
  // Time stands still at each instant at which a frame or a buffer of sound is due, until it has been stamped.
  const MediaTime start = clock->now();
  const auto passTo = [&](std::int64_t count, std::int64_t perSecond) {
    const std::int64_t ticks = count * CaptureClock::kTimescale / perSecond + 1;
    const bool isThere = clock->runUntil(start + MediaTime::make(ticks, CaptureClock::kTimescale));
    RunLoop::main().drain();
    return isThere;
  };
  constexpr std::int64_t kSamples = 256;  // of a buffer of the virtual microphone
  std::int64_t buffers = 1;
  for (std::int64_t frame = 1; frame < 90; ++frame) {
    for (; buffers * kSamples * 30 < frame * 48000; ++buffers) ASSERT_TRUE(passTo(buffers * kSamples, 48000));
    ASSERT_TRUE(passTo(frame, 30));
    ASSERT_TRUE(
        runUntil([&] { return recorder_->camera()->statistics().delivered > static_cast<std::uint64_t>(frame); }));
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 2U);
  for (const auto& offset : offsets) EXPECT_LE(std::abs(offset.seconds), 0.002) << "at " << offset.at;
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
  const auto nothing = test::finishMovie(*recorder_);
  ASSERT_FALSE(nothing.has_value());
  EXPECT_TRUE(nothing.error() == TavrelRecorderErrorCode::notWriting) << nothing.error().description;
  const auto unknown = recorder_->startWriting(folder_ / "movie.avi");
  ASSERT_FALSE(unknown.has_value());
  EXPECT_TRUE(unknown.error() == TavrelRecorderErrorCode::unknownFileType) << unknown.error().description;
  ASSERT_NO_FATAL_FAILURE(startWriting("third.mp4"));
  ASSERT_TRUE(test::startDevices(*recorder_));
  ASSERT_TRUE(moreFrames(3));
  recorder_->cancelWriting();
  EXPECT_FALSE(std::filesystem::exists(folder_ / "third.mp4"));
}

TEST_F(TavrelRecorderTest, TheLimitIsKeptToTheFrame) {
  std::atomic<double> last = 0;
  ASSERT_NO_FATAL_FAILURE(make());
  recorder_->setFrameHandler([&](double seconds) { last = seconds; });
  ASSERT_NO_FATAL_FAILURE(startWriting("movie.mp4", {.durationLimit = 1}));
  ASSERT_TRUE(test::startDevices(*recorder_));
  ASSERT_TRUE(hears(TavrelRecorderEvent::Kind::limitReached));
  ASSERT_TRUE(runUntil([&] { return last > 1.2; }));
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_LE(seen.frameTimes.back(), 1 - 0.5 / 30);
  EXPECT_GT(seen.frameTimes.back(), 0.8);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, 1, 0.05);
  EXPECT_EQ(events_.size(), 1U) << "said once";
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
  const auto finished = test::finishMovie(*recorder_);
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
  ASSERT_TRUE(test::startDevices(*recorder_));
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
  const auto finished = test::finishMovie(*recorder_);
  ASSERT_TRUE(finished.has_value());
  EXPECT_EQ(finished->statistics.framesWritten + finished->statistics.lostInWriter,
            recorder_->camera()->statistics().processed);
}

}  // namespace
}  // namespace tavrel
