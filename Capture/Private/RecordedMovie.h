#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "Capture/Private/FittedDestination.h"
#include "Capture/TavrelRecorder.h"
#include "Capture/Video/TavrelCamera.h"
#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"

namespace tavrel {

/// One movie that a recorder writes. Control from any thread; frames come on the video-processing queue, sound on one
/// other thread.
class RecordedMovie : public std::enable_shared_from_this<RecordedMovie> {
 public:
  using EventHandler = std::function<void(TavrelRecorderEvent event)>;

  /// There is no sound with `soundChannelCount` 0. `lossesBefore` is what the camera has lost so far.
  static Expected<std::shared_ptr<RecordedMovie>> create(const std::filesystem::path& file,
                                                         const TavrelRecorderConfiguration& configuration,
                                                         const TavrelRecordingOptions& options, int soundChannelCount,
                                                         const TavrelCameraStatistics& lossesBefore,
                                                         EventHandler handler);

  /// How long `time` is after the first frame that was ever asked about.
  double secondsUntil(MediaTime time);
  void append(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time);
  /// `heard` is stamped with the moment at which all of it had been heard.
  void append(const SampleBuffer& heard);

  void setPaused(bool isPaused) { writer_->setPaused(isPaused); }
  bool isPaused() const { return writer_->isPaused(); }

  TavrelRecordingStatistics statistics(const TavrelCameraStatistics& lossesNow) const;
  /// `completion` is called on a queue of the writer's.
  void finish(const TavrelCameraStatistics& lossesNow, std::function<void(TavrelRecording)> completion);
  void cancel() { writer_->cancelRecording(); }

 private:
  RecordedMovie(const std::filesystem::path& file, const TavrelRecorderConfiguration& configuration,
                const TavrelRecordingOptions& options, const std::string& fileType,
                const TavrelCameraStatistics& lossesBefore, EventHandler handler);
  void reportOnce(TavrelRecorderEvent::Kind kind, std::atomic<bool>& isReported);
  void lookForFailure();
  bool isBrokenOff() const { return writer_->assetWriter()->status() == AssetWriterStatus::failed; }

  const std::filesystem::path file_;
  const Size size_;
  const double frameLimit_;  // in seconds since the first frame
  const double soundLimit_;
  const TavrelCameraStatistics lossesBefore_;
  const EventHandler handler_;
  const std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  FittedDestination destination_;
  static constexpr double kNone = -1;
  std::atomic<double> firstFrameTime_ = kNone;  // in seconds
  std::atomic<bool> isLimitReported_ = false;
  std::atomic<bool> isFailureReported_ = false;
};

}  // namespace tavrel
