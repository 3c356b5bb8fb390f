#include "GPUImage/Sources/Private/MoviePass.h"

#include <utility>

namespace tavrel {

MoviePass::MoviePass(std::shared_ptr<AssetReader> reader, std::weak_ptr<TavrelGPUImageAudioTarget> soundTarget,
                     bool isReversed)
    : reader_(std::move(reader)), soundTarget_(std::move(soundTarget)), isReversed_(isReversed) {
  for (const auto& output : reader_->outputs()) {
    (output->mediaType() == MediaType::audio ? audioOutput_ : videoOutput_) = output;
  }
}

bool MoviePass::start() {
  if (videoOutput_) videoOutput_->setSupportsRandomAccess(isReversed_);
  if (!reader_->startReading()) return false;
  if (!isReversed_ || !videoOutput_) return true;
  while (const auto picture = videoOutput_->copyNextSampleBuffer()) {
    videoPts_.push_back(picture->presentationTimeStamp());
  }
  return true;
}

bool MoviePass::giveNextSound() const {
  const auto sample = audioOutput_->copyNextSampleBuffer();
  if (const auto target = soundTarget_.lock(); target && sample) target->processAudioBuffer(sample);
  return sample != nullptr;
}

bool MoviePass::endsReversed() {
  if (!isReversed_ || currentIndex_ != videoPts_.size()) return false;
  videoOutput_->markConfigurationAsFinal();
  return true;
}

std::shared_ptr<SampleBuffer> MoviePass::copyNextPicture() {
  return isReversed_ ? copyReversedPicture() : videoOutput_->copyNextSampleBuffer();
}

std::shared_ptr<SampleBuffer> MoviePass::copyReversedPicture() {
  const MediaTime halfRange = MediaTime::make(1, 1000);
  MediaTimeRange range = {videoPts_[videoPts_.size() - 1 - currentIndex_] - halfRange, MediaTime::make(2, 1000)};
  if (range.start < MediaTime::zero()) range = {MediaTime::zero(), halfRange};
  videoOutput_->resetForReadingTimeRanges({range});
  auto picture = videoOutput_->copyNextSampleBuffer();
  // The next reset is allowed only once the output is drained.
  while (videoOutput_->copyNextSampleBuffer()) {
  }
  return picture;
}

MediaTime MoviePass::takeTimeOf(const SampleBuffer& picture) {
  const std::size_t index = currentIndex_++;
  if (!isReversed_) return picture.outputPresentationTimeStamp();
  return index < videoPts_.size() ? videoPts_[index] : MediaTime::zero();
}

}  // namespace tavrel
