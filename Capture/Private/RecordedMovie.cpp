#include "Capture/Private/RecordedMovie.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

/// Sound is kept for so many seconds until the first frame comes.
constexpr double kLongestLatency = 2;
/// Sound that comes so much later than its frames does not come, in seconds.
constexpr double kLatestSound = 0.5;

double durationLimit(const TavrelRecordingOptions& options) {
  constexpr double kNone = std::numeric_limits<double>::infinity();
  return options.durationLimit && isFinite(*options.durationLimit) ? *options.durationLimit : kNone;
}

Dictionary outputSettings(const TavrelRecordingOptions& options, const TavrelRecorderConfiguration& configuration,
                          const std::string& fileType) {
  Dictionary settings = options.settings;
  settings.emplace(kVideoCodecKey, AssetWriter::usualVideoCodec(fileType));
  settings.emplace(kVideoWidthKey, static_cast<std::int64_t>(configuration.size.width));
  settings.emplace(kVideoHeightKey, static_cast<std::int64_t>(configuration.size.height));
  settings.emplace(kVideoExpectedFrameRateKey, configuration.framesPerSecond);
  return settings;
}

Dictionary soundSettings(const TavrelRecordingOptions& options, const std::string& fileType, int channelCount) {
  Dictionary settings = options.audioSettings;
  settings.emplace(kAudioFormatIDKey, static_cast<std::int64_t>(AssetWriter::usualAudioFormat(fileType)));
  settings.emplace(kAudioNumberOfChannelsKey, static_cast<std::int64_t>(std::clamp(channelCount, 1, 2)));
  return settings;
}

}  // namespace

Expected<std::shared_ptr<RecordedMovie>> RecordedMovie::create(const std::filesystem::path& file,
                                                               const TavrelRecorderConfiguration& configuration,
                                                               const TavrelRecordingOptions& options,
                                                               int soundChannelCount,
                                                               const TavrelCameraStatistics& lossesBefore,
                                                               StampQuestion areStamped, EventHandler handler) {
  const std::string fileType = options.fileType.empty() ? AssetWriter::fileTypeOf(file).value_or("") : options.fileType;
  if (fileType.empty()) {
    return failure(TavrelRecorderErrorCode::unknownFileType,
                   file.string() + ": a movie's name ends in .mov, .mp4, .mkv or .webm");
  }
  const std::shared_ptr<RecordedMovie> movie(new RecordedMovie(file, configuration, options, fileType, lossesBefore,
                                                               std::move(areStamped), std::move(handler)));
  if (soundChannelCount > 0) {
    movie->writer_->setHasAudioTrack(true, soundSettings(options, fileType, soundChannelCount));
  }
  if (!movie->writer_->error()) movie->writer_->startRecording();
  if (auto error = movie->writer_->error()) return tl::unexpected(std::move(*error));
  return movie;
}

RecordedMovie::RecordedMovie(const std::filesystem::path& file, const TavrelRecorderConfiguration& configuration,
                             const TavrelRecordingOptions& options, const std::string& fileType,
                             const TavrelCameraStatistics& lossesBefore, StampQuestion areStamped, EventHandler handler)
    : file_(file),
      size_(configuration.size),
      frameLimit_(durationLimit(options) - 0.5 / configuration.framesPerSecond),
      soundLimit_(durationLimit(options)),
      lossesBefore_(lossesBefore),
      audioOffset_(configuration.audioOffset),
      areStamped_(std::move(areStamped)),
      handler_(std::move(handler)),
      writer_(std::make_shared<TavrelGPUImageMovieWriter>(file, size_, fileType,
                                                          outputSettings(options, configuration, fileType))),
      destination_(writer_, size_) {
  if (const auto& assetWriter = writer_->assetWriter()) assetWriter->setStaysFragmented(options.staysFragmented);
}

MediaTime RecordedMovie::placeOf(MediaTime arrival, MediaTime capture) {
  const bool isFirst = firstFrameTime_ == kNone;
  if (isFirst) isPlacedByStamps_ = areStamped_();
  MediaTime place = arrival;
  if (isPlacedByStamps_) {
    // What no device captured stands among its neighbours.
    if (capture.isValid()) latency_ = std::max(0.0, (arrival - capture).seconds());
    place = arrival - MediaTime::fromSeconds(latency_, arrival.timescale);
  }
  // Two cameras of different latency may cross.
  if (place <= latestPlace_) place = latestPlace_ + MediaTime::make(1, 1000);
  latestPlace_ = place;
  if (isFirst) firstFrameTime_ = place.seconds();
  return place;
}

void RecordedMovie::append(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime place) {
  lookForFailure();
  const double seconds = secondsUntil(place);
  if (seconds <= frameLimit_) return destination_.deliver(framebuffer, place);
  // Sound comes later than the frames that it belongs to.
  if (!writer_->hasAudioTrack() || isSoundComplete_ || seconds > frameLimit_ + kLatestSound) {
    reportOnce(TavrelRecorderEvent::Kind::limitReached, isLimitReported_);
  }
}

void RecordedMovie::append(const std::shared_ptr<SampleBuffer>& heard, MediaTime capture) {
  lookForFailure();
  earlySound_.push_back({heard, capture});
  if (firstFrameTime_ == kNone) {
    const MediaTime now = heard->presentationTimeStamp();
    while ((now - earlySound_.front().sample->presentationTimeStamp()).seconds() > kLongestLatency) {
      earlySound_.pop_front();
    }
    return;
  }
  for (; !earlySound_.empty(); earlySound_.pop_front()) place(earlySound_.front());
}

void RecordedMovie::place(const Sound& sound) {
  const MediaTime duration = sound.sample->duration();
  const MediaTime arrival = sound.sample->presentationTimeStamp();
  MediaTime begin = isPlacedByStamps_ ? sound.capture : arrival - duration;
  begin = begin + MediaTime::fromSeconds(audioOffset_, begin.timescale);
  const double end = secondsUntil(begin + duration);
  if (end > soundLimit_) isSoundComplete_ = true;
  if (end <= 0 || end > soundLimit_) return;
  SampleTiming timing = sound.sample->timingEntries().front();
  timing.presentationTimeStamp = begin;
  if (const auto placed = sound.sample->copyWithNewTiming({timing})) writer_->processAudioBuffer(*placed);
}

void RecordedMovie::lookForFailure() {
  if (isBrokenOff()) reportOnce(TavrelRecorderEvent::Kind::writingBrokeOff, isFailureReported_);
}

void RecordedMovie::reportOnce(TavrelRecorderEvent::Kind kind, std::atomic<bool>& isReported) {
  if (isReported.exchange(true)) return;
  handler_({kind, isBrokenOff() ? writer_->error() : std::nullopt});
}

TavrelRecordingStatistics RecordedMovie::statistics(const TavrelCameraStatistics& lossesNow) const {
  TavrelRecordingStatistics statistics;
  statistics.lostInWriter = writer_->droppedVideoFrames();
  statistics.soundLostInWriter = writer_->droppedAudioBuffers();
  statistics.framesWritten = writer_->writtenVideoFrames();
  statistics.late = lossesNow.late - lossesBefore_.late;
  statistics.busy = lossesNow.busy - lossesBefore_.busy;
  statistics.whileSwitching = lossesNow.whileSwitching - lossesBefore_.whileSwitching;
  return statistics;
}

void RecordedMovie::finish(const TavrelCameraStatistics& lossesNow, std::function<void(TavrelRecording)> completion) {
  writer_->finishRecordingWithCompletionHandler([self = shared_from_this(), lossesNow,
                                                 completion = std::move(completion)] {
    TavrelRecording recording;
    recording.file = self->file_;
    recording.size = self->writer_->encodedSize();
    recording.seconds = self->writer_->duration().seconds();
    recording.statistics = self->statistics(lossesNow);
    const bool isComplete = self->writer_->assetWriter()->status() == AssetWriterStatus::completed;
    if (!isComplete) recording.error = self->writer_->error();
    recording.playableSeconds = isComplete ? recording.seconds : self->writer_->assetWriter()->writtenUntil().seconds();
    completion(std::move(recording));
  });
}

}  // namespace tavrel
