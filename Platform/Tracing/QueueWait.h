#pragma once

#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"

namespace tavrel {

/// A frame that is submitted to a queue: made where it is submitted, copied into the block, ended where the block runs.
class TAVREL_API QueueWait {
 public:
  explicit QueueWait(const FrameTrace& frame) : frame_(frame), submission_(Tracer::isOn() ? Tracer::now() : 0) {}

  /// Records how long it took, and makes the frame the calling thread's for as long as the result lives.
  [[nodiscard]] FrameTrace::Scope end(TraceName queue) const {
    if (submission_ > 0 && Tracer::isOn()) {
      const FrameTrace::Scope scope(frame_);
      Tracer::wait(queue, submission_);
    }
    return FrameTrace::Scope(frame_);
  }

 private:
  FrameTrace frame_;
  std::int64_t submission_;
};

}  // namespace tavrel
