#include "GPUImage/Sources/TavrelGPUImageMovie.h"

#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {
namespace {

/// Half of the range in which a picture of a known time is looked for.
const MediaTime kHalfRange = MediaTime::make(1, 1000);

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::filesystem::path& url) : url_(url) {}

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::shared_ptr<Asset>& asset) : asset_(asset) {}

TavrelGPUImageMovie::TavrelGPUImageMovie(const std::shared_ptr<PlayerItem>& playerItem) : playerItem_(playerItem) {}

TavrelGPUImageMovie::~TavrelGPUImageMovie() {
  if (displayLink_) displayLink_->invalidate();
  if (!playerItemOutput_) return;
  playerItemOutput_->setDelegate({}, nullptr);
  if (playerItem_) playerItem_->removeOutput(playerItemOutput_);
}

void TavrelGPUImageMovie::startProcessing() {
  if (playerItem()) return processPlayerItem();
  const std::filesystem::path file = url();
  if (file.empty()) return processAsset();

  if (shouldRepeat_) keepLooping_ = true;
  previousFrameTime_ = MediaTime::zero();
  previousActualFrameTime_ = now();
  const auto inputAsset = Asset::createUnloaded(file, {.prefersPreciseDurationAndTiming = true});
  inputAsset->loadTracksAsynchronously([this, self = shared_from_this(), loading = std::weak_ptr<Asset>(inputAsset)] {
    const auto loaded = loading.lock();
    if (!loaded || loaded->statusOfTracks() != Asset::ValueStatus::loaded) return;
    setAsset(loaded);
    processAsset();
  });
}

std::shared_ptr<AssetReader> TavrelGPUImageMovie::createAssetReader() {
  const std::shared_ptr<Asset> inputAsset = asset();
  auto reader = AssetReader::create(inputAsset);
  if (!reader) return nullptr;
  const auto videoTracks = inputAsset->tracksWithMediaType(MediaType::video);
  if (!videoTracks.empty()) {
    const Dictionary settings = {
        {kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(static_cast<std::uint32_t>(PixelFormat::bgra32))}};
    auto output = std::make_shared<AssetReaderTrackOutput>(videoTracks.front(), settings);
    output->setAlwaysCopiesSampleData(false);
    (*reader)->addOutput(std::move(output));
  }
  const auto audioTracks = inputAsset->tracksWithMediaType(MediaType::audio);
  if (!audioTracks.empty() && audioEncodingTarget()) {
    addAudioOutput(**reader, std::make_shared<AssetReaderTrackOutput>(audioTracks.front(), std::nullopt));
  }
  return *reader;
}

void TavrelGPUImageMovie::addAudioOutput(AssetReader& reader, std::shared_ptr<AssetReaderOutput> output) const {
  const auto writer = std::dynamic_pointer_cast<TavrelGPUImageMovieWriter>(audioEncodingTarget());
  if (writer) writer->setShouldInvalidateAudioSampleWhenDone(true);
  output->setAlwaysCopiesSampleData(false);
  reader.addOutput(std::move(output));
}

void TavrelGPUImageMovie::processAsset() {
  const std::shared_ptr<AssetReader> reader = createAssetReader();
  {
    const std::lock_guard lock(mutex_);
    reader_ = reader;
  }
  audioEncodingIsFinished_ = true;
  std::shared_ptr<AssetReaderOutput> audioOutput;
  std::shared_ptr<AssetReaderOutput> videoOutput;
  for (const auto& output : reader ? reader->outputs() : std::vector<std::shared_ptr<AssetReaderOutput>>()) {
    const bool isAudio = output->mediaType() == MediaType::audio;
    if (isAudio) audioEncodingIsFinished_ = false;
    (isAudio ? audioOutput : videoOutput) = output;
  }
  videoEncodingIsFinished_ = !videoOutput;
  isReversed_ = reverseVideo_;
  if (videoOutput) videoOutput->setSupportsRandomAccess(isReversed_);
  if (!reader || !reader->startReading()) {
    ConsoleLog::write("Error reading from file at URL: {}", url().string());
    return;
  }
  currentIndex_ = 0;
  videoPts_.clear();
  if (isReversed_ && videoOutput) readVideoTimes(*videoOutput);

  if (const auto writer = synchronizedMovieWriter()) return letWriterRead(*writer, videoOutput, audioOutput);
  readToTheEnd(videoOutput, audioOutput);
}

void TavrelGPUImageMovie::readVideoTimes(AssetReaderOutput& videoOutput) {
  while (readerStatus() == AssetReaderStatus::reading) {
    const auto sample = videoOutput.copyNextSampleBuffer();
    if (!sample) return;
    videoPts_.push_back(sample->presentationTimeStamp());
  }
}

void TavrelGPUImageMovie::letWriterRead(TavrelGPUImageMovieWriter& writer,
                                        const std::shared_ptr<AssetReaderOutput>& videoOutput,
                                        const std::shared_ptr<AssetReaderOutput>& audioOutput) {
  const std::weak_ptr<TavrelGPUImageOutput> weak = weak_from_this();
  const auto readingWith = [weak](auto read) {
    return [weak, read]() -> bool {
      const auto self = std::static_pointer_cast<TavrelGPUImageMovie>(weak.lock());
      return self && read(*self);
    };
  };
  writer.setVideoInputReadyCallback(readingWith([videoOutput](TavrelGPUImageMovie& self) {
    return videoOutput && self.readNextVideoFrameFromOutput(*videoOutput);
  }));
  writer.setAudioInputReadyCallback(readingWith([audioOutput](TavrelGPUImageMovie& self) {
    return audioOutput && self.readNextAudioSampleFromOutput(*audioOutput);
  }));
  writer.enableSynchronizationCallbacks();
}

void TavrelGPUImageMovie::readToTheEnd(const std::shared_ptr<AssetReaderOutput>& videoOutput,
                                       const std::shared_ptr<AssetReaderOutput>& audioOutput) {
  while (readerStatus() == AssetReaderStatus::reading && (!shouldRepeat_ || keepLooping_)) {
    if (videoOutput) readNextVideoFrameFromOutput(*videoOutput);
    if (audioOutput && !audioEncodingIsFinished_) readNextAudioSampleFromOutput(*audioOutput);
  }
  if (readerStatus() != AssetReaderStatus::completed) return;
  assetReader()->cancelReading();
  if (!keepLooping_) return endProcessing();
  {
    const std::lock_guard lock(mutex_);
    reader_.reset();
  }
  DispatchQueue::main()->async([self = shared_from_this(), this] { startProcessing(); });
}

bool TavrelGPUImageMovie::readNextVideoFrameFromOutput(AssetReaderOutput& readerVideoTrackOutput) {
  if (isReversed_ && currentIndex_ == static_cast<Index>(videoPts_.size())) {
    readerVideoTrackOutput.markConfigurationAsFinal();
    videoEncodingIsFinished_ = true;
  }
  if (readerStatus() == AssetReaderStatus::reading && !videoEncodingIsFinished_) {
    const auto sample = [&] {
      const TraceSpan span(TraceNames::shared().reading);
      return isReversed_ ? copyReversedSampleBuffer(readerVideoTrackOutput)
                         : readerVideoTrackOutput.copyNextSampleBuffer();
    }();
    if (sample) {
      if (playAtActualSpeed_) waitForActualTime(*sample);
      const QueueWait wait(FrameTrace::arriving());
      TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
        const FrameTrace::Scope frame = wait.end(TraceNames::shared().videoProcessingQueue);
        processMovieFrame(*sample);
        sample->invalidate();
      });
      return true;
    }
    if (!keepLooping_) {
      videoEncodingIsFinished_ = true;
      if (audioEncodingIsFinished_) endProcessing();
    }
    return false;
  }
  if (synchronizedMovieWriter() && readerStatus() == AssetReaderStatus::completed) endProcessing();
  return false;
}

std::shared_ptr<SampleBuffer> TavrelGPUImageMovie::copyReversedSampleBuffer(AssetReaderOutput& output) const {
  const auto count = static_cast<Index>(videoPts_.size());
  const MediaTime time = videoPts_[static_cast<std::size_t>(count - 1 - currentIndex_)];
  MediaTimeRange range = {time - kHalfRange, MediaTime::make(2, 1000)};
  if (range.start < MediaTime::zero()) range = {MediaTime::zero(), kHalfRange};
  output.resetForReadingTimeRanges({range});
  auto sample = output.copyNextSampleBuffer();
  // The next reset is allowed only once the output is drained.
  while (output.copyNextSampleBuffer()) {
  }
  return sample;
}

void TavrelGPUImageMovie::waitForActualTime(const SampleBuffer& sample) {
  const MediaTime time = sample.outputPresentationTimeStamp();
  const double differenceFromLastFrame = (time - previousFrameTime_).seconds();
  const double actualTimeDifference = now() - previousActualFrameTime_;
  if (differenceFromLastFrame > actualTimeDifference) {
    const double microseconds = (differenceFromLastFrame - actualTimeDifference) * 1'000'000;
    std::this_thread::sleep_for(std::chrono::microseconds(static_cast<std::int32_t>(std::min(microseconds, 2e9))));
  }
  previousFrameTime_ = time;
  previousActualFrameTime_ = now();
}

bool TavrelGPUImageMovie::readNextAudioSampleFromOutput(AssetReaderOutput& readerAudioTrackOutput) {
  if (readerStatus() == AssetReaderStatus::reading && !audioEncodingIsFinished_) {
    if (const auto sample = readerAudioTrackOutput.copyNextSampleBuffer()) {
      audioEncodingTarget()->processAudioBuffer(sample);
      return true;
    }
    if (!keepLooping_) {
      audioEncodingIsFinished_ = true;
      if (videoEncodingIsFinished_) endProcessing();
    }
    return false;
  }
  const AssetReaderStatus status = readerStatus();
  const bool isOver = status == AssetReaderStatus::completed || status == AssetReaderStatus::failed ||
                      status == AssetReaderStatus::cancelled;
  if (isOver && synchronizedMovieWriter()) endProcessing();
  return false;
}

void TavrelGPUImageMovie::enableSynchronizedEncodingUsingMovieWriter(
    const std::shared_ptr<TavrelGPUImageMovieWriter>& movieWriter) {
  {
    const std::lock_guard lock(mutex_);
    synchronizedMovieWriter_ = movieWriter;
  }
  if (movieWriter) movieWriter->setEncodingLiveVideo(false);
}

void TavrelGPUImageMovie::cancelProcessing() {
  if (const auto reader = assetReader()) reader->cancelReading();
  endProcessing();
}

void TavrelGPUImageMovie::endProcessing() {
  keepLooping_ = false;
  std::shared_ptr<DisplayLink> link;
  {
    const std::lock_guard lock(mutex_);
    link = displayLink_;
    if (playerItem_) displayLink_.reset();
  }
  if (link) link->setPaused(true);

  // The list is edited on that queue only.
  std::vector<std::shared_ptr<TavrelGPUImageInput>> current;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { current = targets(); });
  for (const auto& target : current) target->endProcessing();

  if (const auto writer = synchronizedMovieWriter()) {
    writer->setVideoInputReadyCallback([] { return false; });
    writer->setAudioInputReadyCallback([] { return false; });
  }
  if (playerItem() && link) link->invalidate();

  std::shared_ptr<TavrelGPUImageMovieDelegate> listener;
  {
    const std::lock_guard lock(mutex_);
    listener = std::exchange(delegate_, {}).lock();
  }
  if (listener) listener->didCompletePlayingMovie();
}

float TavrelGPUImageMovie::progress() const {
  const AssetReaderStatus status = readerStatus();
  if (status == AssetReaderStatus::completed) return 1;
  if (status != AssetReaderStatus::reading) return 0;
  const MediaTime whole = asset()->duration();
  const std::lock_guard lock(mutex_);
  if (processingFrameTime_.timescale == 0 || whole.timescale == 0 || whole.value == 0) return 0;
  const float current =
      static_cast<float>(processingFrameTime_.value) * 1.0F / static_cast<float>(processingFrameTime_.timescale);
  const float total = static_cast<float>(whole.value) * 1.0F / static_cast<float>(whole.timescale);
  return current / total;
}

}  // namespace tavrel
