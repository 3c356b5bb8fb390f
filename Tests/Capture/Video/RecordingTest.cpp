#include <unistd.h>

#include <cmath>
#include <complex>
#include <fstream>
#include <numbers>

#include "CameraRecording.h"
#include "RecordingObservation.h"
#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::CameraRecording;
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

class RecordingTest : public test::CameraTest {
 protected:
  RecordingTest() : movie_(std::filesystem::temp_directory_path() / ("tavrel-recording-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(movie_);
  }
  ~RecordingTest() override {
    if (microphone_) microphone_->stop();
    std::filesystem::remove_all(movie_);
  }

  void startRecording(const std::string& microphoneID = {}) {
    ASSERT_NO_FATAL_FAILURE(make());
    auto microphone = TavrelMicrophone::create({.deviceID = microphoneID});
    ASSERT_TRUE(microphone.has_value()) << microphone.error().description;
    microphone_ = *microphone;
    recording_ = std::make_shared<CameraRecording>(movie_ / "movie.mov", CameraRecording::Options{});
    camera_->setDelegate(recording_);
    microphone_->setDelegate(recording_);
    microphone_->startWithCompletion({});
    camera_->startWithCompletion({});
    ASSERT_TRUE(runUntil([&] { return recording_->frames >= 2; }));
  }
  RecordingObservation finish() {
    camera_->stop();
    microphone_->stop();
    EXPECT_TRUE(recording_->finish());
    return RecordingObservation::of(movie_ / "movie.mov");
  }

  const std::filesystem::path movie_;
  std::shared_ptr<TavrelMicrophone> microphone_;
  std::shared_ptr<CameraRecording> recording_;
};

TEST_F(RecordingTest, FlashAndBeepStandTogetherAndEveryFrameIsAccountedFor) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  runFor(4500ms);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(seen.frameTimes.size(), camera_->statistics().processed - recording_->writer->droppedVideoFrames());
  EXPECT_EQ(recording_->writer->droppedAudioBuffers(), 0U);
  const auto offsets = seen.offsets();
  ASSERT_GE(offsets.size(), 2U);
  // A frame is stamped when it arrives, which on a busy machine may be late for one of them.
  std::vector<double> sizes;
  for (const auto& offset : offsets) sizes.push_back(std::abs(offset.seconds));
  std::sort(sizes.begin(), sizes.end());
  EXPECT_LE(sizes[(sizes.size() - 1) / 2], 0.020) << ::testing::PrintToString(sizes);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.15);
}

TEST_F(RecordingTest, SwitchingCamerasLeavesNoBlackFrame) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  runFor(700ms);
  for (const bool isBlurred : {true, false, true}) {
    camera_->setBlurSwitch(isBlurred);
    camera_->switchCamera();
    runFor(700ms);
  }
  EXPECT_EQ(camera_->devicePosition(), CaptureDevicePosition::back);
  const RecordingObservation seen = finish();
  ASSERT_EQ(seen.error, "");
  // The blurred ones come from no device.
  EXPECT_EQ(seen.frameTimes.size(), recording_->frames - recording_->writer->droppedVideoFrames());
  EXPECT_GT(seen.frameTimes.back(), 2.5);
  for (std::size_t i = 1; i < seen.frameTimes.size(); ++i) EXPECT_GT(seen.frameTimes[i], seen.frameTimes[i - 1]);
  EXPECT_GT(seen.darkest, 40);
  const auto blurred = std::count(seen.counters.begin(), seen.counters.end(), std::nullopt);
  EXPECT_GE(blurred, 2);
  EXPECT_LE(blurred, 4);
  EXPECT_NEAR(static_cast<double>(seen.sound.size()) / seen.sampleRate, seen.frameTimes.back(), 0.15);
}

// Sound is stamped when the main thread takes it, and applications keep that busy.
TEST_F(RecordingTest, ABusyMainThreadIsNotHeard) {
  const auto tone = movie_ / "tone.wav";
  writeTone(tone);
  const auto device = CaptureDevice::addFile(tone, MediaType::audio);
  ASSERT_TRUE(device.has_value()) << device.error().description;
  ASSERT_NO_FATAL_FAILURE(startRecording((*device)->uniqueID()));
  runFor(300ms);
  for (const auto pause : {4ms, 8ms, 15ms, 30ms, 60ms, 120ms, 200ms}) {
    std::this_thread::sleep_for(pause);
    runFor(300ms);
  }
  const RecordingObservation seen = finish();
  VirtualCaptureSystem::shared().removeFiles();
  ASSERT_EQ(seen.error, "");
  EXPECT_EQ(recording_->writer->droppedAudioBuffers(), 0U);
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

}  // namespace
}  // namespace tavrel
