#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "EffectChain.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// One recording: camera → effects → crop to the movie's proportions → movie writer, with the microphone's sound.
class Recording {
 public:
  struct Options {
    std::filesystem::path output;
    std::string fileType;
    std::string camera;
    std::string microphone;  ///< "none" for a silent movie
    int width;
    int height;
    double framesPerSecond;
    std::optional<double> duration;
    std::optional<double> pauseAt;
    std::optional<double> resumeAt;
  };

  Recording(Options options, EffectChain effects);

  /// Records until the duration is over, somebody interrupts or the file cannot be written any more. The exit status.
  int run(bool printJson);

 private:
  Expected<void> openDevices();
  void buildGraph();
  void start();
  void record(ProgressBar& progress);
  void stop();
  int report(bool printJson) const;

  void receiveFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime time);
  void receiveSound(const std::shared_ptr<SampleBuffer>& sound);
  void pauseOrResume(double seconds);
  bool isBrokenOff() const;

  const Options options_;
  const EffectChain effects_;
  std::shared_ptr<DispatchQueue> cameraQueue_ = DispatchQueue::create("org.tavrel.tool.camera");
  std::shared_ptr<DispatchQueue> microphoneQueue_ = DispatchQueue::create("org.tavrel.tool.microphone");
  std::shared_ptr<VirtualCamera> camera_;
  std::shared_ptr<VirtualMicrophone> microphone_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  MediaTime startTime_;
  std::atomic<double> elapsed_ = 0;
  std::atomic<bool> isOver_ = false;
  std::atomic<std::uint64_t> framesTaken_ = 0;
  std::atomic<std::uint64_t> framesRefused_ = 0;
};

}  // namespace tavrel::tool
