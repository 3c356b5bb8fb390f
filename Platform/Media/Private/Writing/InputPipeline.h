#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// What stands behind an `AssetWriterInput`: the bounded hand-over to the encoder's thread, and who waits for it.
///
///     created ──attach──▶ attached ──open──▶ writing ──markAsFinished──▶ finished
///                                               └──────── end ─────────────┴──▶ ended
///
/// Any thread. Encoder and file work happens on the pipeline's queue only.
class InputPipeline : public std::enable_shared_from_this<InputPipeline> {
 public:
  /// Called on the pipeline's queue with the first error.
  using FailureHandler = std::function<void(Error)>;
  /// Called on the appending thread after a sample was taken that somebody was asked for.
  using AppendHandler = std::function<void()>;

  struct Configuration {
    bool isRealTime = false;
    AffineTransform transform;
    std::int32_t timescale = 0;
    std::string languageCode;
  };

  InputPipeline(MediaType mediaType, std::optional<Dictionary> settings,
                std::shared_ptr<const FormatDescription> formatHint)
      : mediaType_(mediaType), settings_(std::move(settings)), formatHint_(std::move(formatHint)) {}
  ~InputPipeline();

  MediaType mediaType() const { return mediaType_; }
  Configuration configuration() const;
  /// Calls `change` on the configuration unless writing has started.
  void configure(const std::function<void(Configuration&)>& change);
  Size encodedSize() const;
  bool hasStarted() const;

  // The writer's side.
  /// Checks the settings; the pipeline then belongs to a writer.
  Expected<void> attach(const MovieFile& file);
  Expected<void> open(std::shared_ptr<PacketQueue> output, FailureHandler failureHandler, AppendHandler appendHandler);
  void startSession(MediaTime time);
  /// There is room for packets again.
  void checkReadiness();
  /// Holds the input back while it is far ahead of others that are being read in step with it.
  void setHeldBack(bool isHeldBack);
  /// No more samples are taken and all who wait wake up; with `discard`, those not yet encoded are dropped.
  void end(bool discard);
  /// Returns once the encoder's thread has done everything and let go of the output.
  void drain();

  struct Progress {
    bool isFeeding = false;  ///< may still deliver
    bool isPulled = false;   ///< somebody asked to be called for data
    bool isRealTime = false;
    double appendedUntil = 0;  ///< seconds on the movie's time line
    std::chrono::steady_clock::time_point lastAppend;
  };
  Progress progress() const;

  // The client's side.
  bool isReady() const;
  bool append(const SampleBuffer& sampleBuffer);
  bool appendPicture(PixelBuffer& pixelBuffer, MediaTime presentationTime);
  void markAsFinished();
  void requestMediaData(std::shared_ptr<DispatchQueue> queue, std::function<void()> block);
  bool waitUntilReady(std::chrono::nanoseconds timeout);

 private:
  enum class Stage { created, attached, writing, finished, ended };

  bool isReadyLocked() const;
  bool hasEndedLocked() const { return stage_ == Stage::finished || stage_ == Stage::ended; }
  bool enqueue(TrackSample sample, MediaTime presentationTime);
  bool stampPicture(TrackSample& sample, MediaTime movieTime);
  bool stampSound(const TrackSample& sample, MediaTime movieTime);
  bool isStorable(const FormatDescription& format) const;
  /// False. A track whose first sample cannot be stored makes the writer fail.
  bool refuse(const FormatDescription& format);
  void process(const TrackSample& sample, double seconds);
  void fail(Error error);
  void finishEncoder();
  void readinessChanged(std::unique_lock<std::mutex>& lock);
  void callRequest();

  const MediaType mediaType_;
  const std::optional<Dictionary> settings_;
  const std::shared_ptr<const FormatDescription> formatHint_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Stage stage_ = Stage::created;
  Configuration configuration_;
  Size encodedSize_;
  bool isHeldBack_ = false;
  std::optional<MediaTime> sessionStart_;
  std::int32_t timescale_ = 0;  // of the track, once the first picture has chosen it
  std::optional<MediaTime> lastPicture_;
  std::int64_t lastUnits_ = -1;
  double appendedUntil_ = 0;
  bool hasAppended_ = false;
  std::chrono::steady_clock::time_point lastAppend_;
  int waitingSamples_ = 0;
  double waitingSeconds_ = 0;

  std::shared_ptr<DispatchQueue> requestQueue_;
  std::shared_ptr<std::function<void()>> requestBlock_;
  bool isRequestPosted_ = false;
  bool isMainWaiting_ = false;

  std::shared_ptr<DispatchQueue> queue_;
  FailureHandler failureHandler_;
  std::shared_ptr<const AppendHandler> appendHandler_;
  TrackOutput output_;
  std::unique_ptr<TrackEncoder> encoder_;
  bool hasFailed_ = false;  // queue only
  std::atomic<bool> isDiscarding_ = false;
};

}  // namespace tavrel
