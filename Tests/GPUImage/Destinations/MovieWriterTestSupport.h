#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kRate = 48000;

inline Picture plain(Pixel pixel) {
  return {kWidth, kHeight, [pixel](int, int) { return pixel; }};
}

inline Picture gray(int level) { return plain({level, level, level, 255}); }

struct DecodedFrame {
  MediaTime time;
  Picture picture;
};

/// A writer behind a source of pixel buffers, and what can be read back from its file.
class MovieWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = std::filesystem::temp_directory_path() / ("tavrel-writer-" + std::to_string(getpid()) + ".mov");
  }
  void TearDown() override {
    writer_.reset();
    std::filesystem::remove(file_);
  }

  static Dictionary requiredSettings() {
    return {{kVideoCodecKey, std::string(kVideoCodecH264)},
            {kVideoWidthKey, std::int64_t{kWidth}},
            {kVideoHeightKey, std::int64_t{kHeight}}};
  }
  void create(Dictionary extraSettings = {}) {
    Dictionary settings = requiredSettings();
    settings.merge(extraSettings);
    writer_ = std::make_shared<TavrelGPUImageMovieWriter>(file_, Size{kWidth, kHeight}, kFileTypeQuickTimeMovie,
                                                          std::move(settings));
    input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
    input_->addTarget(writer_);
  }
  /// Nothing is dropped in this mode, however slow the machine.
  void createNotLive() { create({{kTavrelEncodingLiveVideoKey, false}}); }

  void sendFrame(const Picture& picture, MediaTime time) {
    input_->processCVPixelBuffer(pixelBufferOf(picture), time, true);
    settle();
  }
  void sendFrame(MediaTime time) { sendFrame(gray(100), time); }
  /// Returns when the frames on their way have been encoded.
  void settle() {
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    TavrelRunSynchronouslyOnContextQueue(*writer_->movieWriterContext(), [] {});
  }
  void sendSound(MediaTime time, int samples = 1024, float level = 0) {
    const AudioFormat format = {.sampleRate = kRate, .channelCount = 1};
    const auto data = AudioBufferList::create(format, static_cast<std::size_t>(samples));
    auto* const values = static_cast<float*>(data->buffers()[0].data);
    for (int i = 0; i < samples; ++i) values[i] = level * std::sin(0.13F * static_cast<float>(i));
    writer_->processAudioBuffer(SampleBuffer::createAudio(format, data, samples, time).value());
  }
  bool finishingCallsBack() {
    std::promise<void> done;
    writer_->finishRecordingWithCompletionHandler([&] { done.set_value(); });
    return done.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
  }
  void finish() {
    ASSERT_TRUE(finishingCallsBack());
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

}  // namespace tavrel::test
