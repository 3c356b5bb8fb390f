// What happens to each frame and each sound buffer on its way into the file.
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"
#include "GPUImage/Private/NodeSpan.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/AudioBufferList.h"
#include "Platform/Tracing/QueueWait.h"

namespace tavrel {
namespace {

constexpr std::chrono::milliseconds kVideoWaitSlice(100);
constexpr std::chrono::milliseconds kAudioWaitSlice(500);

std::int64_t nanosecondsOf(MediaTime time) {
  return std::llround(time.seconds() * 1e9);
}

}  // namespace

MediaTime TavrelGPUImageMovieWriter::timeWithoutPauses(MediaTime time, const MediaTime& previousTime) {
  const std::lock_guard lock(timeMutex_);
  if (discont_) {
    const MediaTime current = offsetTime_.value > 0 ? time - offsetTime_ : time;
    const MediaTime gap = current - previousTime;
    // The raw value is tested, whatever its timescale.
    offsetTime_ = offsetTime_.value == 0 ? gap : offsetTime_ + gap;
    discont_ = false;
  }
  return offsetTime_.value > 0 ? time - offsetTime_ : time;
}

void TavrelGPUImageMovieWriter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer,
                                                    Index) {
  if (newInputFramebuffer) newInputFramebuffer->lock();
  firstInputFramebuffer_ = std::move(newInputFramebuffer);
}

void TavrelGPUImageMovieWriter::dropVideoFrame(const char* stage, TraceName reason, MediaTime frameTime) {
  ++droppedVideoFrames_;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerStage, reason);
  ConsoleLog::write("{}: Had to drop a video frame: {}", stage, frameTime.description());
}

void TavrelGPUImageMovieWriter::dropAudioBuffer(TraceName reason) {
  ++droppedAudioBuffers_;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerSoundStage, reason);
}

void TavrelGPUImageMovieWriter::traceAppendedFrame(MediaTime frameTime) const {
  if (!Tracer::isOn()) return;
  const TraceNames& names = TraceNames::shared();
  Tracer::count(names.framesOut);
  if (const FrameTrace frame = FrameTrace::current(); frame.number > 0) Tracer::latency(names.toFile, frame.arrival);
  const std::int64_t sound = soundEnd_;
  if (sound != kNoSound) Tracer::offset(names.soundAhead, sound - nanosecondsOf(frameTime));
}

void TavrelGPUImageMovieWriter::traceAppendedSound(MediaTime end) {
  if (!Tracer::isOn()) return;
  Tracer::count(TraceNames::shared().soundsOut);
  if (end.isNumeric()) soundEnd_ = nanosecondsOf(end);
}

bool TavrelGPUImageMovieWriter::claimFrameInFlight(MediaTime frameTime) {
  if (!encodingLiveVideo_) {
    framesInFlight_.wait();
    return true;
  }
  if (framesInFlight_.tryWait()) return true;
  dropVideoFrame("1", TraceNames::shared().queueFull, frameTime);
  return false;
}

void TavrelGPUImageMovieWriter::newFrameReadyAtTime(MediaTime frameTime, Index) {
  const NodeSpan span(*this);
  const std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer = firstInputFramebuffer_;
  if (!framebuffer) return;
  const auto discard = [&framebuffer] { framebuffer->unlock(); };
  if (!isRecording_ || paused_) return discard();

  frameTime = timeWithoutPauses(frameTime, previousFrameTime_);
  {
    const std::lock_guard lock(timeMutex_);
    // Two frames of one time would break the file.
    if (!frameTime.isValid() || frameTime == previousFrameTime_ || frameTime.isIndefinite()) return discard();
  }
  if (!assetWriterVideoInput_) return discard();
  // Sound may have come first, and begun the movie.
  if (frameTime < startSession(frameTime, static_cast<bool>(videoInputReady_))) {
    dropVideoFrame("1", TraceNames::shared().beforeStart, frameTime);
    return discard();
  }

  // The frame must be complete before another context reads it.
  TavrelGPUImageContext::useImageProcessingContext();
  glFinish();

  if (!claimFrameInFlight(frameTime)) return discard();
  movieWriterContext_->contextQueue()->async(
      [self = shared_from_this(), framebuffer, frameTime, wait = QueueWait(FrameTrace::currentOrArriving())] {
        const FrameTrace::Scope frame = wait.end(TraceNames::shared().writerQueue);
        const TraceSpan writing(TraceNames::shared().writing);
        self->encodeFrame(framebuffer, frameTime);
        self->framesInFlight_.signal();
      });
}

void TavrelGPUImageMovieWriter::encodeFrame(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                            MediaTime frameTime) {
  if (!assetWriterVideoInput_->isReadyForMoreMediaData() && encodingLiveVideo_) {
    framebuffer->unlock();
    dropVideoFrame("1", TraceNames::shared().encoderBusy, frameTime);
    return;
  }
  std::shared_ptr<PixelBuffer> pixelBuffer = readyPixelBuffer(*framebuffer);
  if (!pixelBuffer && !renderAtInternalSizeUsingFramebuffer(*framebuffer)) {
    ConsoleLog::write("Couldn't write a frame");
    framebuffer->unlock();
    return;
  }
  if (!pixelBuffer) pixelBuffer = drawnPixelBuffer();
  if (!pixelBuffer) return;  // the framebuffer stays locked on this exit
  appendPixelBuffer(pixelBuffer, frameTime);
  framebuffer->unlock();
}

bool TavrelGPUImageMovieWriter::waitUntilReady(const std::shared_ptr<AssetWriterInput>& track,
                                               std::chrono::nanoseconds slice,
                                               const std::atomic<bool>& isFinished) const {
  bool isReady = track->isReadyForMoreMediaData();
  while (!isReady && !encodingLiveVideo_ && !isFinished && isWriting()) isReady = track->waitUntilReady(slice);
  return isReady;
}

void TavrelGPUImageMovieWriter::appendPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                  MediaTime frameTime) {
  if (!waitUntilReady(assetWriterVideoInput_, kVideoWaitSlice, videoEncodingIsFinished_)) {
    dropVideoFrame("2", TraceNames::shared().encoderBusy, frameTime);
  } else if (isWriting()) {
    if (assetWriterPixelBufferInput_->append(pixelBuffer, frameTime)) {
      traceAppendedFrame(frameTime);
    } else {
      if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerStage, TraceNames::shared().refused);
      ConsoleLog::write("Problem appending pixel buffer at time: {}", frameTime.description());
    }
  } else {
    ConsoleLog::write("Couldn't write a frame");
  }
  const std::lock_guard lock(timeMutex_);
  previousFrameTime_ = frameTime;
}

void TavrelGPUImageMovieWriter::processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) {
  if (!isRecording_ || paused_ || !hasAudioTrack_) return;
  std::shared_ptr<SampleBuffer> sample = audioBuffer;
  MediaTime time = sample->outputPresentationTimeStamp();
  startSession(time, static_cast<bool>(audioInputReady_));

  if (!assetWriterAudioInput_->isReadyForMoreMediaData() && encodingLiveVideo_) {
    dropAudioBuffer(TraceNames::shared().encoderBusy);
    ConsoleLog::write("1: Had to drop an audio frame: {}", time.description());
    releaseAudioBuffer(*sample);
    return;
  }
  const MediaTime adjusted = timeWithoutPauses(time, previousAudioTime_);
  if (adjusted != time) sample = adjustTime(sample, time - adjusted);
  if (!sample) return;  // invalidated by its owner meanwhile
  time = sample->presentationTimeStamp();
  {
    const std::lock_guard lock(timeMutex_);
    previousAudioTime_ = time;
  }
  if (audioProcessingCallback_) callAudioProcessingCallback(*sample);

  if (encodingLiveVideo_) {
    movieWriterContext_->contextQueue()->async(
        [self = shared_from_this(), sample, time] { self->appendAudioBuffer(sample, time); });
  } else {
    appendAudioBuffer(sample, time);
  }
}

std::shared_ptr<SampleBuffer> TavrelGPUImageMovieWriter::adjustTime(const std::shared_ptr<SampleBuffer>& sample,
                                                                    MediaTime by) const {
  std::vector<SampleTiming> timing = sample->timingEntries();
  for (SampleTiming& entry : timing) {
    entry.decodeTimeStamp = entry.decodeTimeStamp - by;
    entry.presentationTimeStamp = entry.presentationTimeStamp - by;
  }
  const auto retimed = sample->copyWithNewTiming(std::move(timing));
  return retimed ? *retimed : nullptr;
}

void TavrelGPUImageMovieWriter::callAudioProcessingCallback(SampleBuffer& audioBuffer) const {
  const std::shared_ptr<AudioBufferList> list = audioBuffer.audioBufferList();
  if (!list) return;
  for (AudioBuffer& buffer : list->buffers()) audioProcessingCallback_(&buffer.data, audioBuffer.numSamples());
}

void TavrelGPUImageMovieWriter::appendAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer, MediaTime time) {
  if (!waitUntilReady(assetWriterAudioInput_, kAudioWaitSlice, audioEncodingIsFinished_)) {
    dropAudioBuffer(TraceNames::shared().encoderBusy);
    ConsoleLog::write("2: Had to drop an audio frame {}", time.description());
  } else if (isWriting() && !assetWriterAudioInput_->append(audioBuffer)) {
    ConsoleLog::write("Problem appending audio buffer at time: {}", time.description());
  } else if (isWriting()) {
    traceAppendedSound(time + audioBuffer->duration());
  }
  releaseAudioBuffer(*audioBuffer);
}

void TavrelGPUImageMovieWriter::releaseAudioBuffer(SampleBuffer& audioBuffer) const {
  if (shouldInvalidateAudioSampleWhenDone_) audioBuffer.invalidate();
}

}  // namespace tavrel
