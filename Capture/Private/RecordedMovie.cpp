#include "Capture/Private/RecordedMovie.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/MediaSettings.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

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
                                                               EventHandler handler) {
  const std::string fileType = options.fileType.empty() ? AssetWriter::fileTypeOf(file).value_or("") : options.fileType;
  if (fileType.empty()) {
    return failure(TavrelRecorderErrorCode::unknownFileType,
                   file.string() + ": a movie's name ends in .mov, .mp4, .mkv or .webm");
  }
  const std::shared_ptr<RecordedMovie> movie(
      new RecordedMovie(file, configuration, options, fileType, lossesBefore, std::move(handler)));
  if (soundChannelCount > 0) {
    movie->writer_->setHasAudioTrack(true, soundSettings(options, fileType, soundChannelCount));
  }
  if (!movie->writer_->error()) movie->writer_->startRecording();
  if (auto error = movie->writer_->error()) return tl::unexpected(std::move(*error));
  return movie;
}

RecordedMovie::RecordedMovie(const std::filesystem::path& file, const TavrelRecorderConfiguration& configuration,
                             const TavrelRecordingOptions& options, const std::string& fileType,
                             const TavrelCameraStatistics& lossesBefore, EventHandler handler)
    : file_(file),
      size_(configuration.size),
      frameLimit_(durationLimit(options) - 0.5 / configuration.framesPerSecond),
      soundLimit_(durationLimit(options)),
      lossesBefore_(lossesBefore),
      handler_(std::move(handler)),
      writer_(std::make_shared<TavrelGPUImageMovieWriter>(file, size_, fileType,
                                                          outputSettings(options, configuration, fileType))),
      destination_(writer_, size_) {
  if (const auto& assetWriter = writer_->assetWriter()) assetWriter->setStaysFragmented(options.staysFragmented);
}

double RecordedMovie::secondsUntil(MediaTime time) {
  if (firstFrameTime_ == kNone) firstFrameTime_ = time.seconds();
  return time.seconds() - firstFrameTime_;
}

void RecordedMovie::append(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time) {
  lookForFailure();
  if (secondsUntil(time) > frameLimit_) return reportOnce(TavrelRecorderEvent::Kind::limitReached, isLimitReported_);
  destination_.deliver(framebuffer, time);
}

void RecordedMovie::append(const SampleBuffer& heard) {
  lookForFailure();
  const double begin = firstFrameTime_;
  const MediaTime end = heard.presentationTimeStamp();
  if (begin == kNone || end.seconds() - begin > soundLimit_) return;
  SampleTiming timing = heard.timingEntries().front();
  timing.presentationTimeStamp = end - heard.duration();
  if (const auto placed = heard.copyWithNewTiming({timing})) writer_->processAudioBuffer(*placed);
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
