#include <utility>

#include "GPUImage/Destinations/Private/MovieWriterImplementation.h"
#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

MediaTime TavrelGPUImageMovieWriter::duration() const { return implementation_->timeline.duration(); }

AffineTransform TavrelGPUImageMovieWriter::transform() const {
  const auto track = implementation_->video.input();
  return track ? track->transform() : AffineTransform::zero();
}

void TavrelGPUImageMovieWriter::setTransform(const AffineTransform& newValue) {
  if (!isFinite(newValue)) return;
  if (const auto track = implementation_->video.input()) track->setTransform(newValue);
}

Size TavrelGPUImageMovieWriter::encodedSize() const {
  const auto track = implementation_->video.input();
  return track ? track->encodedSize() : Size{};
}

std::vector<MetadataItem> TavrelGPUImageMovieWriter::metaData() const {
  return assetWriter() ? assetWriter()->metadata() : std::vector<MetadataItem>();
}

void TavrelGPUImageMovieWriter::setMetaData(std::vector<MetadataItem> newValue) {
  if (assetWriter()) assetWriter()->setMetadata(std::move(newValue));
}

std::optional<Error> TavrelGPUImageMovieWriter::error() const {
  const auto refusal = implementation_->creationError.get();
  return refusal ? refusal : assetWriter()->error();
}

const std::shared_ptr<AssetWriter>& TavrelGPUImageMovieWriter::assetWriter() const {
  return implementation_->assetWriter;
}

const std::shared_ptr<TavrelGPUImageContext>& TavrelGPUImageMovieWriter::movieWriterContext() const {
  return implementation_->painter.movieWriterContext();
}

Size TavrelGPUImageMovieWriter::maximumOutputSize() const { return implementation_->painter.videoSize(); }

void TavrelGPUImageMovieWriter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) {
  implementation_->painter.setInputRotation(newInputRotation);
}

std::uint64_t TavrelGPUImageMovieWriter::writtenVideoFrames() const {
  const bool hasEnded = !implementation_->isWriting() && assetWriter();
  return hasEnded ? assetWriter()->writtenSamples(MediaType::video) : implementation_->tally.writtenVideoFrames();
}

std::uint64_t TavrelGPUImageMovieWriter::droppedVideoFrames() const {
  return implementation_->tally.droppedVideoFrames();
}

std::uint64_t TavrelGPUImageMovieWriter::droppedAudioBuffers() const {
  return implementation_->tally.droppedAudioBuffers();
}

bool TavrelGPUImageMovieWriter::isRecording() const { return implementation_->isRecording; }

bool TavrelGPUImageMovieWriter::isPaused() const { return implementation_->paused; }

bool TavrelGPUImageMovieWriter::hasAudioTrack() const { return implementation_->hasAudioTrack; }

bool TavrelGPUImageMovieWriter::encodingLiveVideo() const { return implementation_->encodingLiveVideo; }

TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovieWriter, bool, enabled, setEnabled)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovieWriter, bool, shouldPassthroughAudio, setShouldPassthroughAudio)
TAVREL_ATOMIC_PROPERTY(TavrelGPUImageMovieWriter, bool, shouldInvalidateAudioSampleWhenDone,
                       setShouldInvalidateAudioSampleWhenDone)

std::function<void()> TavrelGPUImageMovieWriter::completionBlock() const {
  return implementation_->completionBlock.copy();
}

void TavrelGPUImageMovieWriter::setCompletionBlock(std::function<void()> block) {
  implementation_->completionBlock.set(std::move(block));
}

std::function<void(const Error&)> TavrelGPUImageMovieWriter::failureBlock() const {
  return implementation_->failureBlock.copy();
}

void TavrelGPUImageMovieWriter::setFailureBlock(std::function<void(const Error&)> block) {
  implementation_->failureBlock.set(std::move(block));
}

TavrelGPUImageMovieWriter::AudioProcessingCallback TavrelGPUImageMovieWriter::audioProcessingCallback() const {
  return implementation_->audioProcessingCallback.copy();
}

void TavrelGPUImageMovieWriter::setAudioProcessingCallback(AudioProcessingCallback callback) {
  implementation_->audioProcessingCallback.set(std::move(callback));
}

TavrelGPUImageMovieWriter::InputReadyCallback TavrelGPUImageMovieWriter::videoInputReadyCallback() const {
  return implementation_->video.inputReadyCallback().copy();
}

void TavrelGPUImageMovieWriter::setVideoInputReadyCallback(InputReadyCallback callback) {
  implementation_->video.inputReadyCallback().set(std::move(callback));
}

TavrelGPUImageMovieWriter::InputReadyCallback TavrelGPUImageMovieWriter::audioInputReadyCallback() const {
  return implementation_->audio.inputReadyCallback().copy();
}

void TavrelGPUImageMovieWriter::setAudioInputReadyCallback(InputReadyCallback callback) {
  implementation_->audio.inputReadyCallback().set(std::move(callback));
}

std::shared_ptr<TavrelGPUImageMovieWriterDelegate> TavrelGPUImageMovieWriter::delegate() const {
  return implementation_->delegate.get().lock();
}

void TavrelGPUImageMovieWriter::setDelegate(const std::shared_ptr<TavrelGPUImageMovieWriterDelegate>& newDelegate) {
  implementation_->delegate.set(newDelegate);
}

}  // namespace tavrel
