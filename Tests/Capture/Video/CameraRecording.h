#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "TavrelCaptureBase.h"

namespace tavrel::test {

/// Leads what a camera and a microphone hand out into a movie.
class CameraRecording : public TavrelCameraDelegate, public TavrelMicrophoneDelegate {
 public:
  struct Options {
    Size size = {320, 240};
    bool isLive = true;       ///< drops what the encoder has no room for; else the camera's chain waits
    std::string preset = {};  ///< of the video encoder; empty: the writer's choice
  };

  CameraRecording(const std::filesystem::path& file, const Options& options)
      : writer(std::make_shared<TavrelGPUImageMovieWriter>(file, options.size, kFileTypeQuickTimeMovie,
                                                           videoSettings(options))) {
    writer->setEncodingLiveVideo(options.isLive);
    writer->setHasAudioTrack(true);
    writer->startRecording();
  }

  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming& timing) override {
    ++frames;
    writer->setInputFramebuffer(framebuffer, 0);
    writer->newFrameReadyAtTime(timing.presentationTimeStamp, 0);
  }
  void didGetProcessedSampleBuffer(TavrelMicrophone&, const std::shared_ptr<SampleBuffer>& sampleBuffer) override {
    writer->processAudioBuffer(sampleBuffer);
  }

  /// Returns when the file is complete; the camera and the microphone must have stopped. Main thread.
  bool finish() {
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame is on its way
    std::atomic<bool> isFinished = false;
    writer->finishRecordingWithCompletionHandler([&] { isFinished = true; });
    return RunLoop::main().runUntil([&] { return isFinished.load(); }, std::chrono::seconds(60)) && !writer->error();
  }

  const std::shared_ptr<TavrelGPUImageMovieWriter> writer;
  std::atomic<std::uint64_t> frames = 0;

 private:
  static std::optional<Dictionary> videoSettings(const Options& options) {
    if (options.preset.empty()) return std::nullopt;
    return Dictionary{{kVideoCodecKey, std::string(kVideoCodecH264)},
                      {kVideoWidthKey, static_cast<std::int64_t>(options.size.width)},
                      {kVideoHeightKey, static_cast<std::int64_t>(options.size.height)},
                      {kVideoPresetKey, options.preset}};
  }
};

}  // namespace tavrel::test
