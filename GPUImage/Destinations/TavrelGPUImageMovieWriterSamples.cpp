// What happens to each frame and each sound buffer on its way into the file.
#include <chrono>
#include <utility>
#include <vector>

#include "GPUImage/Destinations/Private/MovieWriterImplementation.h"
#include "GPUImage/Private/ContextLending.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/AudioBufferList.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {
namespace {

constexpr std::chrono::milliseconds kVideoWaitSlice(100);
constexpr std::chrono::milliseconds kAudioWaitSlice(500);

std::shared_ptr<SampleBuffer> adjustTime(const SampleBuffer& sample, MediaTime by) {
  std::vector<SampleTiming> timing = sample.timingEntries();
  for (SampleTiming& entry : timing) {
    entry.decodeTimeStamp = entry.decodeTimeStamp - by;
    entry.presentationTimeStamp = entry.presentationTimeStamp - by;
  }
  return sample.copyWithNewTiming(std::move(timing)).value_or(nullptr);
}

}  // namespace

void TavrelGPUImageMovieWriter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer,
                                                    Index) {
  if (newInputFramebuffer) newInputFramebuffer->lock();
  implementation_->firstInputFramebuffer = std::move(newInputFramebuffer);
}

void TavrelGPUImageMovieWriter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  const NodeSpan span(*this);
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer = implementation_->firstInputFramebuffer;
  if (!framebuffer) return;
  const std::optional<MediaTime> time = implementation_->admitFrame(frameTime);
  if (!time) return framebuffer->unlock();

  if (!implementation_->claimFrameInFlight(*time)) return framebuffer->unlock();
  TavrelGPUImageContext::useImageProcessingContext();
  framebuffer = implementation_->painter.scaled(TavrelGPUImageFramebufferLease::adopt(std::move(framebuffer))).detach();
  // The frame must be complete before another context reads it.
  glFinish();
  movieWriterContext()->contextQueue()->async(
      [self = shared_from_this(), framebuffer, time, wait = QueueWait(FrameTrace::currentOrArriving())] {
        const FrameTrace::Scope frame = wait.end(TraceNames::shared().writerQueue);
        const TraceSpan writing(TraceNames::shared().writing);
        self->implementation_->encodeFrame(*framebuffer, *time);
        self->implementation_->framesInFlight.signal();
      });
}

std::optional<MediaTime> TavrelGPUImageMovieWriter::Implementation::admitFrame(MediaTime time) {
  if (!isRecording || paused) return std::nullopt;
  const std::optional<MediaTime> place = timeline.placeOfFrame(time);
  if (!place || !video.input()) return std::nullopt;
  // Sound may have come first, and begun the movie.
  if (*place >= startSession(*place, video)) return place;
  tally.frameDropped(TraceNames::shared().beforeStart);
  return std::nullopt;
}

bool TavrelGPUImageMovieWriter::Implementation::claimFrameInFlight(MediaTime time) {
  if (!encodingLiveVideo) {
    const ContextWait wait;
    framesInFlight.wait();
    return true;
  }
  if (framesInFlight.tryWait()) return true;
  dropFrame(1, TraceNames::shared().queueFull, time);
  return false;
}

void TavrelGPUImageMovieWriter::Implementation::encodeFrame(TavrelGPUImageFramebuffer& framebuffer, MediaTime time) {
  if (!isRecording) return framebuffer.unlock();  // it was cancelled meanwhile
  if (encodingLiveVideo && !video.input()->isReadyForMoreMediaData()) {
    framebuffer.unlock();
    return dropFrame(1, TraceNames::shared().encoderBusy, time);
  }
  const std::shared_ptr<PixelBufferPool> pool = assetWriterPixelBufferInput->pixelBufferPool();
  std::shared_ptr<PixelBuffer> pixelBuffer = pool ? painter.readyPixelBuffer(framebuffer) : nullptr;
  if (!pool || (!pixelBuffer && !painter.renderAtInternalSizeUsingFramebuffer(framebuffer, *pool))) {
    tally.frameRefused();
    return framebuffer.unlock();
  }
  if (!pixelBuffer) pixelBuffer = painter.drawnPixelBuffer(*pool);
  if (!pixelBuffer) return;  // the framebuffer stays locked on this exit
  appendPixelBuffer(pixelBuffer, time);
  framebuffer.unlock();
}

void TavrelGPUImageMovieWriter::Implementation::appendPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                                  MediaTime time) {
  if (!video.waitUntilReady(encodingLiveVideo, kVideoWaitSlice)) {
    dropFrame(2, TraceNames::shared().encoderBusy, time);
  } else if (!isWriting()) {
    ConsoleLog::write("Couldn't write a frame");
  } else if (assetWriterPixelBufferInput->append(pixelBuffer, time)) {
    tally.frameAppended(time);
  } else {
    tally.frameRefused();
    ConsoleLog::write("Problem appending pixel buffer at time: {}", time.description());
  }
  timeline.advance(MovieTimeline::Stream::video, time);
}

void TavrelGPUImageMovieWriter::Implementation::dropFrame(int stage, TraceName reason, MediaTime time) {
  tally.frameDropped(reason);
  ConsoleLog::write("{}: Had to drop a video frame: {}", stage, time.description());
}

void TavrelGPUImageMovieWriter::processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) {
  Implementation& recording = *implementation_;
  if (!recording.isRecording || recording.paused || !recording.hasAudioTrack) return;
  const auto track = recording.audio.input();
  if (!audioBuffer || !track) return;
  std::shared_ptr<SampleBuffer> sample = audioBuffer;
  MediaTime time = sample->outputPresentationTimeStamp();
  recording.startSession(time, recording.audio);

  if (!track->isReadyForMoreMediaData() && recording.encodingLiveVideo) {
    recording.tally.soundDropped(TraceNames::shared().encoderBusy);
    ConsoleLog::write("1: Had to drop an audio frame: {}", time.description());
    return recording.releaseAudioBuffer(*sample);
  }
  if (const auto cut = recording.timeline.timeToCut(MovieTimeline::Stream::audio, time)) {
    sample = adjustTime(*sample, *cut);
    if (!sample) return;  // invalidated by its owner meanwhile
  }
  time = sample->presentationTimeStamp();
  recording.timeline.advance(MovieTimeline::Stream::audio, time);
  recording.callAudioProcessingCallback(*sample);

  if (!recording.encodingLiveVideo) return recording.appendAudioBuffer(sample, time);
  movieWriterContext()->contextQueue()->async(
      [self = shared_from_this(), sample, time] { self->implementation_->appendAudioBuffer(sample, time); });
}

void TavrelGPUImageMovieWriter::Implementation::callAudioProcessingCallback(SampleBuffer& audioBuffer) const {
  const auto callback = audioProcessingCallback.get();
  const std::shared_ptr<AudioBufferList> list = callback ? audioBuffer.audioBufferList() : nullptr;
  if (!list) return;
  for (AudioBuffer& buffer : list->buffers()) (*callback)(&buffer.data, audioBuffer.numSamples());
}

void TavrelGPUImageMovieWriter::Implementation::appendAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer,
                                                                  MediaTime time) {
  const bool isReady = audio.waitUntilReady(encodingLiveVideo, kAudioWaitSlice);
  if (!isRecording) return releaseAudioBuffer(*audioBuffer);  // the recording ended meanwhile
  if (!isReady) {
    tally.soundDropped(TraceNames::shared().encoderBusy);
    ConsoleLog::write("2: Had to drop an audio frame {}", time.description());
  } else if (isWriting() && !audio.input()->append(audioBuffer)) {
    ConsoleLog::write("Problem appending audio buffer at time: {}", time.description());
  } else if (isWriting()) {
    tally.soundAppended(time + audioBuffer->duration());
  }
  releaseAudioBuffer(*audioBuffer);
}

void TavrelGPUImageMovieWriter::Implementation::releaseAudioBuffer(SampleBuffer& audioBuffer) const {
  if (shouldInvalidateAudioSampleWhenDone) audioBuffer.invalidate();
}

}  // namespace tavrel
