#include "GPUImage/Destinations/Private/MovieWriterTally.h"

#include <cmath>

#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"

namespace tavrel {
namespace {

std::int64_t nanosecondsOf(MediaTime time) { return std::llround(time.seconds() * 1e9); }

}  // namespace

void MovieWriterTally::frameAppended(MediaTime time) {
  ++writtenVideoFrames_;
  if (!Tracer::isOn()) return;
  const TraceNames& names = TraceNames::shared();
  Tracer::count(names.framesOut);
  if (const FrameTrace frame = FrameTrace::current(); frame.number > 0) Tracer::latency(names.toFile, frame.arrival);
  const std::int64_t sound = soundEnd_;
  if (sound != kNoSound) Tracer::offset(names.soundAhead, sound - nanosecondsOf(time));
}

void MovieWriterTally::soundAppended(MediaTime end) {
  if (!Tracer::isOn()) return;
  Tracer::count(TraceNames::shared().soundsOut);
  if (end.isNumeric()) soundEnd_ = nanosecondsOf(end);
}

void MovieWriterTally::frameDropped(TraceName reason) {
  ++droppedVideoFrames_;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerStage, reason);
}

void MovieWriterTally::soundDropped(TraceName reason) {
  ++droppedAudioBuffers_;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerSoundStage, reason);
}

void MovieWriterTally::frameRefused() {
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().writerStage, TraceNames::shared().refused);
}

}  // namespace tavrel
