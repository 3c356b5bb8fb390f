#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <future>
#include <numeric>
#include <thread>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::ConsoleCapture;
using test::Picture;
using test::Pixel;

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kRate = 48000;

Picture plain(Pixel pixel) {
  return {kWidth, kHeight, [pixel](int, int) { return pixel; }};
}

Picture gray(int level) { return plain({level, level, level, 255}); }

/// Dark red above, bright blue below; the left third green.
Picture landmark() {
  return {kWidth, kHeight, [](int x, int y) {
            if (x < kWidth / 3) return Pixel{40, 160, 40, 255};
            return y < kHeight / 2 ? Pixel{120, 20, 20, 255} : Pixel{60, 60, 220, 255};
          }};
}

/// Upright and in its colours.
void expectLandmark(const Picture& decoded) {
  const Picture source = landmark();
  for (const auto& [x, y] : {std::pair(8, 8), std::pair(8, 40), std::pair(44, 8), std::pair(44, 40)}) {
    EXPECT_NEAR(decoded.at(x, y).r, source.at(x, y).r, 4);
    EXPECT_NEAR(decoded.at(x, y).g, source.at(x, y).g, 4);
    EXPECT_NEAR(decoded.at(x, y).b, source.at(x, y).b, 4);
  }
}

struct DecodedFrame {
  MediaTime time;
  Picture picture;
};

class MovieWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = std::filesystem::temp_directory_path() / ("tavrel-writer-" + std::to_string(getpid()) + ".mov");
  }
  void TearDown() override {
    writer_.reset();
    std::filesystem::remove(file_);
  }

  void create(Dictionary extraSettings = {}) {
    Dictionary settings = {{kVideoCodecKey, std::string(kVideoCodecH264)},
                           {kVideoWidthKey, std::int64_t{kWidth}},
                           {kVideoHeightKey, std::int64_t{kHeight}}};
    settings.merge(extraSettings);
    writer_ = std::make_shared<TavrelGPUImageMovieWriter>(file_, Size{kWidth, kHeight}, kFileTypeQuickTimeMovie,
                                                          std::move(settings));
    input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
    input_->addTarget(writer_);
  }
  /// Nothing is dropped in this mode, however slow the machine.
  void createNotLive() { create({{kTavrelEncodingLiveVideoKey, false}}); }

  void sendFrame(const Picture& picture, MediaTime time) {
    input_->processCVPixelBuffer(test::pixelBufferOf(picture), time, true);
    settle();
  }
  void sendFrame(MediaTime time) { sendFrame(gray(100), time); }
  /// Returns when the frames on their way have been encoded.
  void settle() {
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    TavrelRunSynchronouslyOnContextQueue(*writer_->movieWriterContext(), [] {});
  }
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
      input_->processCVPixelBuffer(test::pixelBufferOf(gray(i)), MediaTime::make(i, 30), true);
    }
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    return release;
  }
  void sendSound(MediaTime time, int samples = 1024, float level = 0) {
    const AudioFormat format = {.sampleRate = kRate, .channelCount = 1};
    const auto data = AudioBufferList::create(format, static_cast<std::size_t>(samples));
    auto* const values = static_cast<float*>(data->buffers()[0].data);
    for (int i = 0; i < samples; ++i) values[i] = level * std::sin(0.13F * static_cast<float>(i));
    writer_->processAudioBuffer(SampleBuffer::createAudio(format, data, samples, time).value());
  }
  void finish() {
    std::promise<void> done;
    writer_->finishRecordingWithCompletionHandler([&] { done.set_value(); });
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::completed);
  }

  std::vector<DecodedFrame> decodedFrames() const {
    std::vector<DecodedFrame> frames;
    forEachSample(MediaType::video, [&](SampleBuffer& sample) {
      const auto buffer = sample.imageBuffer();
      buffer->lockBaseAddress(PixelBufferLock::readOnly);
      const std::uint8_t* const bytes = buffer->baseAddress();
      frames.push_back({sample.presentationTimeStamp(),
                        {static_cast<int>(buffer->width()), static_cast<int>(buffer->height()), [&](int x, int y) {
                           const std::uint8_t* p = bytes + static_cast<std::size_t>(y) * buffer->bytesPerRow() + x * 4;
                           return Pixel{p[2], p[1], p[0], p[3]};
                         }}});
      buffer->unlockBaseAddress(PixelBufferLock::readOnly);
    });
    return frames;
  }
  std::vector<double> frameSeconds() const {
    std::vector<double> seconds;
    for (const DecodedFrame& frame : decodedFrames()) seconds.push_back(frame.time.seconds());
    return seconds;
  }
  /// Length of the sound and the largest step between the end of one piece and the start of the next.
  std::pair<double, double> soundLengthAndLargestStep() const {
    double end = 0;
    double largestStep = 0;
    forEachSample(MediaType::audio, [&](SampleBuffer& sample) {
      const double start = sample.presentationTimeStamp().seconds();
      largestStep = std::max(largestStep, std::abs(start - end));
      end = start + static_cast<double>(sample.numSamples()) / kRate;
    });
    return {end, largestStep};
  }

  template <typename Action>
  void forEachSample(MediaType mediaType, Action action) const {
    const auto asset = Asset::create(file_).value();
    const auto tracks = asset->tracksWithMediaType(mediaType);
    ASSERT_EQ(tracks.size(), 1U);
    const auto reader = AssetReader::create(asset).value();
    const auto output = std::make_shared<AssetReaderTrackOutput>(tracks[0]);
    reader->addOutput(output);
    ASSERT_TRUE(reader->startReading());
    while (const auto sample = output->copyNextSampleBuffer()) action(*sample);
    EXPECT_EQ(reader->status(), AssetReaderStatus::completed);
  }

  std::filesystem::path file_;
  std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input_;
};

TEST_F(MovieWriterTest, FramesAreKeptWithTheirTimesUprightAndInColour) {
  createNotLive();
  writer_->startRecording();
  std::vector<double> expected;
  std::int64_t value = 123'456;
  for (int i = 0; i < 20; ++i) {
    sendFrame(landmark(), MediaTime::make(value, 600));
    expected.push_back(static_cast<double>(value - 123'456) / 600);
    value += 15 + 7 * (i % 3);  // a variable frame rate
  }
  EXPECT_EQ(writer_->duration(), MediaTime::make(value - 123'456 - 15 - 7 * (19 % 3), 600));
  finish();

  const auto frames = decodedFrames();
  ASSERT_EQ(frames.size(), expected.size());
  for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_NEAR(frames[i].time.seconds(), expected[i], 1.0 / 600 + 1e-9);
  expectLandmark(frames.back().picture);
}

TEST_F(MovieWriterTest, FramesOfTheGraphKeepTheirPicturesWhileTheNextAreDrawn) {
  createNotLive();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  input_->removeTarget(writer_);
  input_->addTarget(filter);
  filter->addTarget(writer_);
  writer_->startRecording();
  constexpr int kFrames = 25;
  for (int i = 0; i < kFrames; ++i) {
    input_->processCVPixelBuffer(test::pixelBufferOf(gray(10 * i)), MediaTime::make(i, 30), true);
  }
  sendFrame(landmark(), MediaTime::make(kFrames, 30));
  finish();
  const auto frames = decodedFrames();
  ASSERT_EQ(frames.size(), kFrames + 1U);
  for (int i = 0; i < kFrames; ++i) EXPECT_NEAR(frames[static_cast<std::size_t>(i)].picture.at(8, 8).r, 10 * i, 4) << i;
  expectLandmark(frames.back().picture);
}

TEST_F(MovieWriterTest, TheWritersQueueHasTheSharedContextWhileTheVideoQueueWaitsForIt) {
  createNotLive();
  writer_->startRecording();
  writer_->movieWriterContext()->contextQueue()->async([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until too many frames are in flight
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {
      TavrelGPUImageContext::useImageProcessingContext();
      EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    });
  });
  for (int i = 0; i < 10; ++i) sendFrame(MediaTime::make(i, 30));
  finish();
  EXPECT_EQ(frameSeconds().size(), 10U);
}

TEST_F(MovieWriterTest, TheInputRotationTurnsThePicture) {
  createNotLive();
  writer_->setInputRotation(kTavrelGPUImageRotate180, 0);
  writer_->startRecording();
  sendFrame(landmark(), MediaTime::make(0, 30));
  finish();
  const Picture decoded = decodedFrames().at(0).picture;
  EXPECT_GT(decoded.at(kWidth - 8, 8).g, 130);
  EXPECT_GT(decoded.at(20, 8).b, 180);
}

TEST_F(MovieWriterTest, FramesThatWouldBreakTheFileAreLeftOut) {
  createNotLive();
  sendFrame(MediaTime::make(0, 30));  // not recording yet
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  sendFrame(MediaTime::make(0, 30));
  sendFrame(MediaTime::make(0, 600));
  sendFrame(MediaTime::indefinite());
  sendFrame(MediaTime::invalid());
  sendFrame(MediaTime::make(1, 30));
  finish();
  sendFrame(MediaTime::make(2, 30));
  EXPECT_EQ(frameSeconds().size(), 2U);
}

TEST_F(MovieWriterTest, FramesOfATimeBeforeTheSoundThatBeganTheMovieAreCountedAsDropped) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  const ConsoleCapture console;
  for (int i = 0; i < 8; ++i) sendSound(MediaTime::make(kRate + i * 1024, kRate));
  sendFrame(MediaTime::make(29, 30));
  sendFrame(MediaTime::make(31, 30));
  finish();
  EXPECT_EQ(writer_->droppedVideoFrames(), 1U);
  EXPECT_THAT(console.messages(), ::testing::IsEmpty());
  EXPECT_EQ(frameSeconds().size(), 1U);
}

TEST_F(MovieWriterTest, PausesAreCutOutOfBothTracks) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  // 21.3 ms of sound and a frame each 1/25 s, from an arbitrary start; the first sample after each pause is a frame.
  const MediaTime start = MediaTime::make(1'000'000'000'000, 100'000'000);
  std::int64_t soundSample = 0;
  const auto sendUntil = [&](int firstFrame, int lastFrame) {
    for (int i = firstFrame; i < lastFrame; ++i) {
      sendFrame(start + MediaTime::make(i, 25));
      for (; soundSample < std::int64_t{i + 1} * kRate / 25; soundSample += 1024) {
        sendSound(start + MediaTime::make(soundSample, kRate));
      }
    }
  };
  sendUntil(0, 25);
  for (const int pauseStart : {25, 100}) {
    writer_->setPaused(true);
    writer_->setPaused(true);
    sendUntil(pauseStart, pauseStart + 50);  // 2 s, discarded
    writer_->setPaused(false);
    sendUntil(pauseStart + 50, pauseStart + 75);
  }
  finish();

  const std::vector<double> seconds = frameSeconds();
  ASSERT_GE(seconds.size(), 72U);
  for (std::size_t i = 1; i < seconds.size(); ++i) EXPECT_NEAR(seconds[i] - seconds[i - 1], 0.04, 0.001) << i;
  const auto [length, largestStep] = soundLengthAndLargestStep();
  EXPECT_NEAR(length, seconds.back() + 0.04, 0.06);
  EXPECT_LT(largestStep, 0.001);
}

TEST_F(MovieWriterTest, APauseIsMeasuredOnTheRawFirstSample) {
  createNotLive();
  writer_->startRecording();
  sendFrame(MediaTime::make(10, 10));
  writer_->setPaused(true);
  sendFrame(MediaTime::make(20, 10));
  writer_->setPaused(false);
  sendFrame(MediaTime::make(30, 10));  // measures the gap of 2 s and lands on the last frame's time: left out
  sendFrame(MediaTime::make(31, 10));
  writer_->setPaused(true);
  writer_->setPaused(false);
  sendFrame(MediaTime::make(51, 10));
  sendFrame(MediaTime::make(52, 10));
  finish();
  EXPECT_THAT(frameSeconds(), ::testing::ElementsAre(::testing::DoubleNear(0, 1e-3), ::testing::DoubleNear(0.1, 2e-3),
                                                     ::testing::DoubleNear(0.2, 2e-3)));
}

TEST_F(MovieWriterTest, TheCallbackSeesAndChangesSound) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  int calls = 0;
  writer_->setAudioProcessingCallback([&](void** samples, Index count) {
    EXPECT_EQ(count, 1024);
    auto* const values = static_cast<float*>(*samples);
    for (Index i = 0; i < count; ++i) values[i] = (i / 24) % 2 ? 0.5F : -0.5F;
    ++calls;
  });
  writer_->startRecording();
  for (int i = 0; i < 20; ++i) {
    sendFrame(MediaTime::make(i * 1024, kRate));
    sendSound(MediaTime::make(i * 1024, kRate));
  }
  finish();
  EXPECT_EQ(calls, 20);
  double energy = 0;
  forEachSample(MediaType::audio, [&](SampleBuffer& sample) {
    const auto list = sample.audioBufferList();
    const auto* const values = static_cast<const float*>(list->buffers()[0].data);
    energy = std::inner_product(values, values + sample.numSamples(), values, energy);
  });
  EXPECT_GT(energy / (20 * 1024), 0.1);
}

TEST_F(MovieWriterTest, ALiveRecordingNeverWaitsButDropsAndSaysSo) {
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

TEST_F(MovieWriterTest, LiveSoundWaitsForAPictureThatTakesSeconds) {
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

TEST_F(MovieWriterTest, StatisticsTellDropsByReasonAndWhatIsInTheFile) {
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

TEST_F(MovieWriterTest, StatisticsTellHowFarSoundIsAhead) {
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

TEST_F(MovieWriterTest, TracksPullTheirDataUntilTheSourceEnds) {
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
    input_->processCVPixelBuffer(test::pixelBufferOf(gray(frames * 4)), MediaTime::make(frames, 30), true);
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

TEST_F(MovieWriterTest, AReadyCallbackThatWasReplacedIsAskedNoMore) {
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

TEST_F(MovieWriterTest, BlocksAndCallbacksAreReadBackAndReplacedWhileTheyRun) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  EXPECT_FALSE(writer_->completionBlock() || writer_->failureBlock() || writer_->audioProcessingCallback());
  EXPECT_FALSE(writer_->videoInputReadyCallback() || writer_->audioInputReadyCallback());
  writer_->setVideoInputReadyCallback([] { return true; });
  writer_->setAudioInputReadyCallback([] { return false; });
  EXPECT_TRUE(writer_->videoInputReadyCallback()());
  EXPECT_FALSE(writer_->audioInputReadyCallback()());
  writer_->setVideoInputReadyCallback({});
  writer_->setAudioInputReadyCallback({});
  EXPECT_FALSE(writer_->videoInputReadyCallback());
  std::optional<Error> failed;
  writer_->setFailureBlock([&](const Error& error) { failed = error; });
  writer_->failureBlock()({.domain = "media", .code = 7, .description = ""});
  EXPECT_EQ(failed->code, 7);

  std::atomic<int> processed = 0;
  std::atomic<bool> isOver = false;
  std::thread setter([&] {
    while (!isOver) {
      writer_->setAudioProcessingCallback([&, held = std::make_shared<int>(1)](void**, Index) { processed += *held; });
      writer_->setCompletionBlock([] {});
      writer_->setDelegate(std::make_shared<TavrelGPUImageMovieWriterDelegate>());
    }
  });
  while (!writer_->audioProcessingCallback()) std::this_thread::yield();
  writer_->startRecording();
  writer_->processAudioBuffer(nullptr);
  for (int i = 0; i < 100; ++i) {
    sendSound(MediaTime::make(i * 1024, kRate));
    writer_->endProcessing();
  }
  isOver = true;
  setter.join();
  EXPECT_EQ(processed, 100);
  writer_->cancelRecording();
}

TEST_F(MovieWriterTest, CancellingRemovesTheFile) {
  create();
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  writer_->cancelRecording();
  EXPECT_FALSE(writer_->isRecording());
  EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::cancelled);
  EXPECT_FALSE(std::filesystem::exists(file_));
  std::promise<void> done;  // finishing afterwards only calls back
  writer_->finishRecordingWithCompletionHandler([&] { done.set_value(); });
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(MovieWriterTest, FinishingBeforeTheStartOnlyCallsBack) {
  create();
  std::promise<void> done;
  writer_->finishRecordingWithCompletionHandler([&] { done.set_value(); });
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::unknown);
  EXPECT_EQ(writer_->duration(), MediaTime::zero());
}

TEST_F(MovieWriterTest, TheEndIsToldOnceToABlockButEachTimeToADelegate) {
  class Delegate : public TavrelGPUImageMovieWriterDelegate {
   public:
    void movieRecordingCompleted() override { ++completions; }
    int completions = 0;
  };
  create();
  const auto delegate = std::make_shared<Delegate>();
  writer_->setDelegate(delegate);
  writer_->endProcessing();
  writer_->endProcessing();
  EXPECT_EQ(delegate->completions, 2);
  int blocks = 0;
  writer_->setCompletionBlock([&] { ++blocks; });
  writer_->endProcessing();
  writer_->endProcessing();
  EXPECT_EQ(blocks, 1);
  EXPECT_EQ(delegate->completions, 2);
}

TEST_F(MovieWriterTest, WithoutAVideoTrackSoundAloneIsRecorded) {
  create({{kTavrelHasVideoTrackKey, false}, {kTavrelEncodingLiveVideoKey, false}});
  EXPECT_EQ(writer_->transform(), AffineTransform::zero());
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  for (int i = 0; i < 50; ++i) sendSound(MediaTime::make(i * 1024, kRate), 1024, 0.5F);
  EXPECT_NEAR(writer_->duration().seconds(), 49 * 1024.0 / kRate, 1e-6);
  finish();
  EXPECT_NEAR(soundLengthAndLargestStep().first, 50 * 1024.0 / kRate, 0.03);
}

TEST_F(MovieWriterTest, AFileThatCannotBeCreatedIsToldAndHurtsNobody) {
  const ConsoleCapture console;
  file_ = "/no such folder/movie.mov";
  createNotLive();
  ASSERT_TRUE(writer_->error().has_value());
  EXPECT_TRUE(console.contains("Error: "));
  EXPECT_TRUE(console.contains("/no such folder"));
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  sendSound(MediaTime::make(0, 30));
  writer_->finishRecording();
  writer_->cancelRecording();
}

// An application starts its next recording from the handler of the last one, on the writer's queue.
TEST_F(MovieWriterTest, AFinishHandlerMayBuildTheNextGraph) {
  createNotLive();
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  const auto nextFile = file_.string() + ".next.mov";
  std::promise<int> difference;
  writer_->finishRecordingWithCompletionHandler([&] {
    const auto next = std::make_shared<TavrelGPUImageMovieWriter>(nextFile, Size{kWidth, kHeight});
    next->startRecording();
    next->finishRecording();
    difference.set_value(0);
  });
  EXPECT_EQ(difference.get_future().get(), 0);
  std::filesystem::remove(nextFile);
}

using MovieWriterDeathTest = MovieWriterTest;

TEST_F(MovieWriterDeathTest, MisuseStopsTheProgramWithItsText) {
  for (const char* missing : {kVideoCodecKey, kVideoWidthKey, kVideoHeightKey}) {
    Dictionary settings = {{kVideoCodecKey, std::string(kVideoCodecH264)},
                           {kVideoWidthKey, std::int64_t{kWidth}},
                           {kVideoHeightKey, std::int64_t{kHeight}}};
    settings.erase(missing);
    EXPECT_DEATH(TavrelGPUImageMovieWriter(file_, Size{kWidth, kHeight}, kFileTypeQuickTimeMovie, settings),
                 "OutputSettings is missing required parameters.");
  }
  EXPECT_DEATH(
      {
        create();
        writer_->startRecording();
        writer_->setEncodingLiveVideo(false);
      },
      "Can not change Encoding Live Video while recording");
}

TEST_F(MovieWriterTest, TheGraphMayDrawWhileTheWriterDoes) {
  // What a driver reads after giving it up is then certain to be wrong.
  mallopt(M_PERTURB, 0x55);
  createNotLive();
  input_->removeAllTargets();
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  std::shared_ptr<TavrelGPUImageOutput> last = input_;
  for (int i = 0; i < 40; ++i) {
    filters.push_back(std::make_shared<TavrelGPUImageFilter>());
    last->addTarget(filters.back());
    last = filters.back();
  }
  last->addTarget(writer_);
  writer_->startRecording();
  const auto buffer = test::pixelBufferOf(gray(100));
  constexpr int kFrames = 800;
  for (int i = 0; i < kFrames; ++i) input_->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
  settle();
  finish();
  EXPECT_EQ(frameSeconds().size(), kFrames);
  mallopt(M_PERTURB, 0);
}

}  // namespace
}  // namespace tavrel
