#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"

#include <algorithm>
#include <utility>

#include "GPUImage/Destinations/Private/MovieWriterImplementation.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Media/AudioSession.h"
#include "Platform/Media/MediaSettings.h"

namespace tavrel {
namespace {

/// The truth value under `key`; nothing when it is absent or no number.
std::optional<bool> truthFor(const std::optional<Dictionary>& settings, std::string_view key) {
  if (!settings) return std::nullopt;
  const std::optional<double> number = numberFor(*settings, key);
  return number ? std::optional(*number != 0) : std::nullopt;
}

/// None of a size that is no number of pixels, for which the writer then says that it takes no such track.
std::int64_t wholePixels(double size) {
  return isFinite(size) ? static_cast<std::int64_t>(std::clamp(size, 0.0, 1e6)) : 0;
}

Dictionary defaultVideoSettings(Size size) {
  return {{kVideoCodecKey, std::string(kVideoCodecH264)},
          {kVideoWidthKey, wholePixels(size.width)},
          {kVideoHeightKey, wholePixels(size.height)}};
}

Dictionary defaultAudioSettings() {
  // A channel layout record holds its tag first; 0x640001 is mono.
  Data monoLayout(32, 0);
  monoLayout[0] = 0x01;
  monoLayout[2] = 0x64;
  return {{kAudioFormatIDKey, static_cast<std::int64_t>(kAudioFormatMPEG4AAC)},
          {kAudioNumberOfChannelsKey, std::int64_t{1}},
          {kAudioSampleRateKey, static_cast<double>(static_cast<float>(AudioSession::shared().sampleRate()))},
          {kAudioChannelLayoutKey, std::move(monoLayout)},
          {kAudioEncoderBitRateKey, std::int64_t{64000}}};
}

}  // namespace

TavrelGPUImageMovieWriter::TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize)
    : TavrelGPUImageMovieWriter(newMovieURL, newSize, kFileTypeQuickTimeMovie, std::nullopt) {}

TavrelGPUImageMovieWriter::TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize,
                                                     std::string_view newFileType,
                                                     const std::optional<Dictionary>& outputSettings)
    : implementation_(std::make_unique<Implementation>(newMovieURL, newSize, newFileType)) {
  implementation_->initializeMovieWithOutputSettings(outputSettings);
}

TavrelGPUImageMovieWriter::~TavrelGPUImageMovieWriter() = default;

void TavrelGPUImageMovieWriter::Implementation::initializeMovieWithOutputSettings(
    const std::optional<Dictionary>& outputSettings) {
  encodingLiveVideo = truthFor(outputSettings, kTavrelEncodingLiveVideoKey).value_or(true);
  auto created = painter.prepare().and_then([this] { return AssetWriter::create(movieURL, fileType); });
  if (created) {
    assetWriter = *created;
  } else {
    const Error& error = created.error();
    creationError.set(error);
    ConsoleLog::write("Error: {}", error.description);
    if (const auto block = failureBlock.get()) {
      (*block)(error);
    } else if (const auto listener = delegate.get().lock()) {
      listener->movieRecordingFailedWithError(error);
    }
  }
  if (!truthFor(outputSettings, kTavrelHasVideoTrackKey).value_or(true)) return;
  if (assetWriter) assetWriter->setMovieFragmentInterval(MediaTime::make(1000, 1000));
  addVideoTrack(outputSettings);
}

void TavrelGPUImageMovieWriter::Implementation::addVideoTrack(const std::optional<Dictionary>& outputSettings) {
  Dictionary settings = outputSettings.value_or(defaultVideoSettings(painter.videoSize()));
  for (const char* required : {kVideoCodecKey, kVideoWidthKey, kVideoHeightKey}) {
    if (!settings.contains(required)) fatalAssertion("OutputSettings is missing required parameters.");
  }
  settings.erase(kTavrelEncodingLiveVideoKey);
  const auto track = AssetWriterInput::create(MediaType::video, std::move(settings));
  assetWriterPixelBufferInput = AssetWriterInputPixelBufferAdaptor::create(
      track, {{kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(PixelFormat::bgra32)},
              {kPixelBufferWidthKey, wholePixels(painter.videoSize().width)},
              {kPixelBufferHeightKey, wholePixels(painter.videoSize().height)}});
  addTrack(video, track);
}

void TavrelGPUImageMovieWriter::Implementation::addTrack(MovieTrackFeeder& feeder,
                                                         const std::shared_ptr<AssetWriterInput>& track) {
  track->setExpectsMediaDataInRealTime(encodingLiveVideo);
  const auto refusal = feeder.attach(track);
  if (refusal && !creationError.get()) creationError.set(refusal);
}

void TavrelGPUImageMovieWriter::setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings) {
  implementation_->hasAudioTrack = hasAudioTrack;
  if (!hasAudioTrack) return;
  if (shouldPassthroughAudio()) {
    audioSettings.reset();
  } else if (!audioSettings) {
    audioSettings = defaultAudioSettings();
  }
  const auto track = AssetWriterInput::create(MediaType::audio, std::move(audioSettings));
  implementation_->addTrack(implementation_->audio, track);
}

void TavrelGPUImageMovieWriter::setEncodingLiveVideo(bool newValue) {
  implementation_->encodingLiveVideo = newValue;
  if (isRecording()) fatalAssertion("Can not change Encoding Live Video while recording");
  for (const auto& track : {implementation_->video.input(), implementation_->audio.input()}) {
    if (track) track->setExpectsMediaDataInRealTime(newValue);
  }
}

void TavrelGPUImageMovieWriter::setPaused(bool newValue) {
  const bool isChange = implementation_->paused.exchange(newValue) != newValue;
  if (isChange && newValue) implementation_->timeline.pause();
}

void TavrelGPUImageMovieWriter::Implementation::startWriting() {
  if (assetWriter && !creationError.get() && !isWriting()) assetWriter->startWriting();
}

MediaTime TavrelGPUImageMovieWriter::Implementation::startSession(MediaTime time, const MovieTrackFeeder& stream) {
  if (const MediaTime start = timeline.startTime(); start.isValid()) return start;
  painter.runOnWriterQueue([&] {
    if (timeline.startTime().isValid()) return;  // the other stream has been first meanwhile
    if (!stream.inputReadyCallback()) startWriting();
    if (assetWriter) assetWriter->startSessionAtSourceTime(time);
    timeline.beginAt(time);
  });
  return timeline.startTime();
}

void TavrelGPUImageMovieWriter::startRecording() {
  implementation_->alreadyFinishedRecording = false;
  implementation_->timeline.restart();
  implementation_->painter.runOnWriterQueue([this] {
    if (!implementation_->audio.inputReadyCallback()) implementation_->startWriting();
  });
  implementation_->isRecording = true;
}

void TavrelGPUImageMovieWriter::startRecordingInOrientation(const AffineTransform& orientationTransform) {
  setTransform(orientationTransform);
  startRecording();
}

void TavrelGPUImageMovieWriter::finishRecording() { finishRecordingWithCompletionHandler({}); }

void TavrelGPUImageMovieWriter::finishRecordingWithCompletionHandler(std::function<void()> handler) {
  Implementation& recording = *implementation_;
  recording.painter.runOnWriterQueue([&] {
    recording.isRecording = false;
    const AssetWriterStatus status = recording.status();
    if (status == AssetWriterStatus::completed || status == AssetWriterStatus::cancelled ||
        status == AssetWriterStatus::unknown) {
      if (handler) movieWriterContext()->contextQueue()->async(std::move(handler));
      return;
    }
    recording.video.finish();
    recording.audio.finish();
    recording.assetWriter->finishWriting(handler ? std::move(handler) : [] {});
  });
}

void TavrelGPUImageMovieWriter::cancelRecording() {
  Implementation& recording = *implementation_;
  if (recording.status() == AssetWriterStatus::completed) return;
  recording.isRecording = false;
  recording.painter.runOnWriterQueue([&recording] {
    recording.alreadyFinishedRecording = true;
    recording.video.finish();
    recording.audio.finish();
    if (recording.assetWriter) recording.assetWriter->cancelWriting();
  });
}

void TavrelGPUImageMovieWriter::endProcessing() {
  if (const auto block = implementation_->completionBlock.get()) {
    if (!implementation_->alreadyFinishedRecording.exchange(true)) (*block)();
  } else if (const auto listener = delegate()) {
    listener->movieRecordingCompleted();
  }
}

void TavrelGPUImageMovieWriter::enableSynchronizationCallbacks() {
  Implementation& recording = *implementation_;
  const auto pull = [&, this](MovieTrackFeeder& track, const char* queueLabel) {
    track.pull(queueLabel, weak_from_this(), recording.paused, movieWriterContext()->contextQueue());
  };
  if (recording.video.inputReadyCallback() && recording.video.input()) {
    recording.startWriting();
    pull(recording.video, "org.tavrel.TavrelGPUImage.videoReadingQueue");
  }
  // Sound does not start the writing: pictures do, or the first sample.
  if (recording.audio.inputReadyCallback() && recording.audio.input()) {
    pull(recording.audio, "org.tavrel.TavrelGPUImage.audioReadingQueue");
  }
}

}  // namespace tavrel
