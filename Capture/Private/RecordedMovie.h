#pragma once

#include <atomic>
#include <deque>
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
  /// Whether both devices say when they captured. Asked when the first frame comes.
  using StampQuestion = std::function<bool()>;

  /// There is no sound with `soundChannelCount` 0. `lossesBefore` is what the camera has lost so far.
  static Expected<std::shared_ptr<RecordedMovie>> create(const std::filesystem::path& file,
                                                         const TavrelRecorderConfiguration& configuration,
                                                         const TavrelRecordingOptions& options, int soundChannelCount,
                                                         const TavrelCameraStatistics& lossesBefore,
                                                         StampQuestion areStamped, EventHandler handler);

  /// The time in the movie of a frame that arrived and was captured then: of capture, if both devices tell.
  MediaTime placeOf(MediaTime arrival, MediaTime capture);
  /// How long `place` is after that of the first frame that was ever placed.
  double secondsUntil(MediaTime place) const { return place.seconds() - firstFrameTime_; }
  void append(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime place);
  /// `heard` is stamped with the moment at which all of it had been heard, as far as its arrival tells; its device says
  /// that it began at `capture`.
  void append(const std::shared_ptr<SampleBuffer>& heard, MediaTime capture);

  void setPaused(bool isPaused) { writer_->setPaused(isPaused); }
  bool isPaused() const { return writer_->isPaused(); }

  TavrelRecordingStatistics statistics(const TavrelCameraStatistics& lossesNow) const;
  /// `completion` is called on a queue of the writer's.
  void finish(const TavrelCameraStatistics& lossesNow, std::function<void(TavrelRecording)> completion);
  void cancel() { writer_->cancelRecording(); }

 private:
  RecordedMovie(const std::filesystem::path& file, const TavrelRecorderConfiguration& configuration,
                const TavrelRecordingOptions& options, const std::string& fileType,
                const TavrelCameraStatistics& lossesBefore, StampQuestion areStamped, EventHandler handler);
  struct Sound {
    std::shared_ptr<SampleBuffer> sample;
    MediaTime capture;
  };
  void place(const Sound& sound);
  void reportOnce(TavrelRecorderEvent::Kind kind, std::atomic<bool>& isReported);
  void lookForFailure();
  bool isBrokenOff() const { return writer_->assetWriter()->status() == AssetWriterStatus::failed; }

  const std::filesystem::path file_;
  const Size size_;
  const double frameLimit_;  // in seconds since the first frame
  const double soundLimit_;
  const TavrelCameraStatistics lossesBefore_;
  const double audioOffset_;  // in seconds
  const StampQuestion areStamped_;
  const EventHandler handler_;
  const std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  FittedDestination destination_;
  bool isPlacedByStamps_ = false;  // written before, and read after, the first frame's time
  double latency_ = 0;             // of the latest frame that a device captured, in seconds
  MediaTime latestPlace_ = MediaTime::negativeInfinity();
  std::deque<Sound> earlySound_;  // of the time in which the first frame may have been captured that is still to come
  static constexpr double kNone = -1;
  std::atomic<double> firstFrameTime_ = kNone;  // in seconds
  std::atomic<bool> isSoundComplete_ = false;   // up to its limit
  std::atomic<bool> isLimitReported_ = false;
  std::atomic<bool> isFailureReported_ = false;
};

}  // namespace tavrel
