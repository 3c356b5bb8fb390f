#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"

#include <thread>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/AudioSession.h"
#include "Platform/Media/MediaSettings.h"

namespace tavrel {
namespace {

// Frames that may be on their way to the writer queue: a producer ahead of it must not fill the memory.
constexpr long kMostFramesInFlight = 8;

/// The truth value under `key`; nothing when it is absent or no number.
std::optional<bool> truthFor(const std::optional<Dictionary>& settings, std::string_view key) {
  if (!settings) return std::nullopt;
  const std::optional<double> number = numberFor(*settings, key);
  return number ? std::optional(*number != 0) : std::nullopt;
}

Dictionary defaultVideoSettings(Size size) {
  return {{kVideoCodecKey, std::string(kVideoCodecH264)},
          {kVideoWidthKey, static_cast<std::int64_t>(size.width)},
          {kVideoHeightKey, static_cast<std::int64_t>(size.height)}};
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
    : movieURL_(newMovieURL), fileType_(newFileType), videoSize_(newSize), framesInFlight_(kMostFramesInFlight) {
  encodingLiveVideo_ = truthFor(outputSettings, kTavrelEncodingLiveVideoKey).value_or(true);
  initializeMovieWithOutputSettings(outputSettings);
}

TavrelGPUImageMovieWriter::~TavrelGPUImageMovieWriter() {
  destroyDataFBO();
}

void TavrelGPUImageMovieWriter::initializeMovieWithOutputSettings(const std::optional<Dictionary>& outputSettings) {
  isRecording_ = false;
  enabled_ = true;
  auto created = initializeRendering().and_then([this] { return AssetWriter::create(movieURL_, fileType_); });
  if (created) {
    assetWriter_ = *created;
  } else {
    creationError_ = created.error();
    ConsoleLog::write("Error: {}", creationError_->description);
    if (failureBlock_) {
      failureBlock_(*creationError_);
    } else if (const auto listener = delegate()) {
      listener->movieRecordingFailedWithError(*creationError_);
    }
  }
  if (!truthFor(outputSettings, kTavrelHasVideoTrackKey).value_or(true)) return;
  if (assetWriter_) assetWriter_->setMovieFragmentInterval(MediaTime::make(1000, 1000));
  addVideoTrack(outputSettings);
}

void TavrelGPUImageMovieWriter::addVideoTrack(const std::optional<Dictionary>& outputSettings) {
  Dictionary settings = outputSettings.value_or(defaultVideoSettings(videoSize_));
  for (const char* required : {kVideoCodecKey, kVideoWidthKey, kVideoHeightKey}) {
    if (!settings.contains(required)) fatalAssertion("OutputSettings is missing required parameters.");
  }
  settings.erase(kTavrelEncodingLiveVideoKey);
  assetWriterVideoInput_ = AssetWriterInput::create(MediaType::video, std::move(settings));
  assetWriterVideoInput_->setExpectsMediaDataInRealTime(encodingLiveVideo_);
  assetWriterPixelBufferInput_ = AssetWriterInputPixelBufferAdaptor::create(
      assetWriterVideoInput_, {{kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(PixelFormat::bgra32)},
                               {kPixelBufferWidthKey, static_cast<std::int64_t>(videoSize_.width)},
                               {kPixelBufferHeightKey, static_cast<std::int64_t>(videoSize_.height)}});
  if (assetWriter_) assetWriter_->addInput(assetWriterVideoInput_);
}

void TavrelGPUImageMovieWriter::setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings) {
  hasAudioTrack_ = hasAudioTrack;
  if (!hasAudioTrack) return;
  if (shouldPassthroughAudio_) {
    audioSettings.reset();
  } else if (!audioSettings) {
    audioSettings = defaultAudioSettings();
  }
  assetWriterAudioInput_ = AssetWriterInput::create(MediaType::audio, std::move(audioSettings));
  if (assetWriter_) assetWriter_->addInput(assetWriterAudioInput_);
  assetWriterAudioInput_->setExpectsMediaDataInRealTime(encodingLiveVideo_);
}

void TavrelGPUImageMovieWriter::setEncodingLiveVideo(bool newValue) {
  encodingLiveVideo_ = newValue;
  if (isRecording_) fatalAssertion("Can not change Encoding Live Video while recording");
  if (assetWriterVideoInput_) assetWriterVideoInput_->setExpectsMediaDataInRealTime(newValue);
  if (assetWriterAudioInput_) assetWriterAudioInput_->setExpectsMediaDataInRealTime(newValue);
}

void TavrelGPUImageMovieWriter::setPaused(bool newValue) {
  if (paused_.exchange(newValue) == newValue || !newValue) return;
  const std::lock_guard lock(timeMutex_);
  discont_ = true;
}

void TavrelGPUImageMovieWriter::startWriting() {
  if (assetWriter_ && !isWriting()) assetWriter_->startWriting();
}

void TavrelGPUImageMovieWriter::startRecording() {
  alreadyFinishedRecording_ = false;
  {
    const std::lock_guard lock(timeMutex_);
    startTime_ = MediaTime::invalid();
  }
  runOnWriterQueue([this] {
    if (!audioInputReady_) startWriting();
  });
  isRecording_ = true;
}

void TavrelGPUImageMovieWriter::startRecordingInOrientation(const AffineTransform& orientationTransform) {
  setTransform(orientationTransform);
  startRecording();
}

// Straight to the writer's own queue: the functions of the context would run the block inline on the video-processing
// queue, and the graph would wait for each frame to be encoded.
void TavrelGPUImageMovieWriter::runOnWriterQueue(const std::function<void()>& block) {
  const std::shared_ptr<DispatchQueue>& queue = movieWriterContext_->contextQueue();
  if (queue->isCurrent()) {
    block();
  } else {
    queue->sync(block);
  }
}

MediaTime TavrelGPUImageMovieWriter::startSession(MediaTime time, bool isFedByCallback) {
  {
    const std::lock_guard lock(timeMutex_);
    if (startTime_.isValid()) return startTime_;
  }
  runOnWriterQueue([&] {
    {
      // The other stream may have been first meanwhile.
      const std::lock_guard lock(timeMutex_);
      if (startTime_.isValid()) return;
      startTime_ = time;
    }
    if (!isFedByCallback) startWriting();
    if (assetWriter_) assetWriter_->startSessionAtSourceTime(time);
  });
  const std::lock_guard lock(timeMutex_);
  return startTime_;
}

void TavrelGPUImageMovieWriter::markTrackFinished(const std::shared_ptr<AssetWriterInput>& track,
                                                  std::atomic<bool>& isFinished) {
  if (!isWriting() || isFinished.exchange(true)) return;
  if (track) track->markAsFinished();
}

void TavrelGPUImageMovieWriter::finishRecording() {
  finishRecordingWithCompletionHandler({});
}

void TavrelGPUImageMovieWriter::finishRecordingWithCompletionHandler(std::function<void()> handler) {
  runOnWriterQueue([&] {
    isRecording_ = false;
    const AssetWriterStatus status = assetWriter_ ? assetWriter_->status() : AssetWriterStatus::unknown;
    if (status == AssetWriterStatus::completed || status == AssetWriterStatus::cancelled ||
        status == AssetWriterStatus::unknown) {
      if (handler) movieWriterContext_->contextQueue()->async(std::move(handler));
      return;
    }
    markTrackFinished(assetWriterVideoInput_, videoEncodingIsFinished_);
    markTrackFinished(assetWriterAudioInput_, audioEncodingIsFinished_);
    assetWriter_->finishWriting(handler ? std::move(handler) : [] {});
  });
}

void TavrelGPUImageMovieWriter::cancelRecording() {
  if (assetWriter_ && assetWriter_->status() == AssetWriterStatus::completed) return;
  isRecording_ = false;
  runOnWriterQueue([this] {
    alreadyFinishedRecording_ = true;
    markTrackFinished(assetWriterVideoInput_, videoEncodingIsFinished_);
    markTrackFinished(assetWriterAudioInput_, audioEncodingIsFinished_);
    if (assetWriter_) assetWriter_->cancelWriting();
  });
}

void TavrelGPUImageMovieWriter::endProcessing() {
  if (completionBlock_) {
    if (!alreadyFinishedRecording_.exchange(true)) completionBlock_();
  } else if (const auto listener = delegate()) {
    listener->movieRecordingCompleted();
  }
}

void TavrelGPUImageMovieWriter::enableSynchronizationCallbacks() {
  if (videoInputReady_ && assetWriterVideoInput_) {
    startWriting();
    videoQueue_ =
        DispatchQueue::create("org.tavrel.TavrelGPUImage.videoReadingQueue", TavrelGPUImageDefaultQueueAttribute());
    requestMediaData(assetWriterVideoInput_, videoQueue_, videoInputReady_, videoEncodingIsFinished_);
  }
  if (audioInputReady_ && assetWriterAudioInput_) {
    audioQueue_ =
        DispatchQueue::create("org.tavrel.TavrelGPUImage.audioReadingQueue", TavrelGPUImageDefaultQueueAttribute());
    requestMediaData(assetWriterAudioInput_, audioQueue_, audioInputReady_, audioEncodingIsFinished_);
  }
}

void TavrelGPUImageMovieWriter::requestMediaData(const std::shared_ptr<AssetWriterInput>& track,
                                                 const std::shared_ptr<DispatchQueue>& queue,
                                                 const SharedCallback& callback, std::atomic<bool>& isFinished) {
  track->requestMediaDataWhenReady(queue, [weakSelf = weak_from_this(), track, &callback, &isFinished] {
    const auto self = weakSelf.lock();
    if (!self) return;
    if (self->paused_) {
      std::this_thread::sleep_for(std::chrono::microseconds(10000));
      return;
    }
    while (track->isReadyForMoreMediaData() && !self->paused_) {
      const auto current = callback.get();
      if ((current && (*current)()) || isFinished) continue;
      self->movieWriterContext_->contextQueue()->async(
          [self, track, &isFinished] { self->markTrackFinished(track, isFinished); });
      return;  // asked again if the track could not be finished yet
    }
  });
}

MediaTime TavrelGPUImageMovieWriter::duration() const {
  const std::lock_guard lock(timeMutex_);
  if (!startTime_.isValid()) return MediaTime::zero();
  for (const MediaTime& end : {previousFrameTime_, previousAudioTime_}) {
    if (!end.isNegativeInfinity()) return end - startTime_;
  }
  return MediaTime::zero();
}

AffineTransform TavrelGPUImageMovieWriter::transform() const {
  return assetWriterVideoInput_ ? assetWriterVideoInput_->transform() : AffineTransform::zero();
}

void TavrelGPUImageMovieWriter::setTransform(const AffineTransform& newValue) {
  if (assetWriterVideoInput_) assetWriterVideoInput_->setTransform(newValue);
}

std::vector<MetadataItem> TavrelGPUImageMovieWriter::metaData() const {
  return assetWriter_ ? assetWriter_->metadata() : std::vector<MetadataItem>();
}

void TavrelGPUImageMovieWriter::setMetaData(std::vector<MetadataItem> newValue) {
  if (assetWriter_) assetWriter_->setMetadata(std::move(newValue));
}

Size TavrelGPUImageMovieWriter::encodedSize() const {
  return assetWriterVideoInput_ ? assetWriterVideoInput_->encodedSize() : Size{};
}

std::optional<Error> TavrelGPUImageMovieWriter::error() const {
  return assetWriter_ ? assetWriter_->error() : creationError_;
}

}  // namespace tavrel
