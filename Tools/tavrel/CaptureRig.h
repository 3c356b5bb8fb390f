#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "EffectChain.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Camera and microphone, and the movie that is written of them: camera ▶ effects ▶ preview and movie writer.
class CaptureRig : public TavrelCameraDelegate,
                   public TavrelMicrophoneDelegate,
                   public std::enable_shared_from_this<CaptureRig> {
 public:
  struct Options {
    std::string camera = "front";
    std::string microphone = "default";  ///< "none" for no sound
    Size size;                           ///< of the movie
    double framesPerSecond = 30;
  };

  static Expected<std::shared_ptr<CaptureRig>> create(const Options& options, const EffectChain& effects);
  ~CaptureRig() override;

  /// Returns when both devices run, or have failed to.
  Expected<void> start();
  void stop();

  /// Everything from the next frame on goes into this file.
  Expected<void> startWriting(const std::filesystem::path& output, const std::string& fileType);
  /// Completes the file.
  void finishWriting();
  bool isWriting() const { return isWriting_; }
  /// The latest movie's.
  const std::shared_ptr<TavrelGPUImageMovieWriter>& writer() const { return writer_; }
  bool isBrokenOff() const;

  const std::shared_ptr<TavrelCamera>& camera() const { return camera_; }
  Size movieSize() const { return movieSize_; }
  /// Called before each frame that is written, on the video-processing queue, with the seconds since the first one; the
  /// frame is left out when the answer is false.
  void setFrameHandler(std::function<bool(double seconds)> handler) { frameHandler_ = std::move(handler); }
  /// Sound that ends later than this after the first frame is left out.
  void setSoundLimit(double seconds) { soundLimit_ = seconds; }
  std::uint64_t framesWritten() const { return framesWritten_; }
  /// Frames that were lost since the writing began, on their way to the writer or there.
  std::uint64_t framesLost() const;

  void didGetProcessedFramebuffer(TavrelCamera& camera, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming& timing) override;
  void didGetProcessedSampleBuffer(TavrelMicrophone& microphone, const std::shared_ptr<SampleBuffer>& sample) override;

 private:
  CaptureRig() = default;
  Expected<void> open(const Options& options, const EffectChain& effects);
  void watchDevices();
  Expected<void> startMicrophone();
  std::uint64_t lostOnTheWay() const;
  void write(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time);

  Size movieSize_;
  std::shared_ptr<TavrelCamera> camera_;
  std::shared_ptr<TavrelMicrophone> microphone_;
  std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  /// Brings frames of other proportions, which some effects make, to the movie's.
  std::shared_ptr<TavrelGPUImageCropFilter> crop_ = std::make_shared<TavrelGPUImageCropFilter>();
  Size croppedSize_;
  std::function<bool(double)> frameHandler_;
  double soundLimit_ = 1e12;
  std::atomic<bool> isWriting_ = false;
  std::atomic<double> firstFrameTime_ = -1;  // in seconds
  std::atomic<std::uint64_t> framesWritten_ = 0;
  std::uint64_t lostBefore_ = 0;
  std::vector<NotificationCenter::ObserverToken> observers_;
};

}  // namespace tavrel::tool
