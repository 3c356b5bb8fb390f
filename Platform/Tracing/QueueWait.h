#pragma once

#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"

namespace tavrel {

/// Measures how long a frame waits in a queue: created on submission, copied into the block, ended when the block runs.
class TAVREL_API QueueWait {
 public:
  explicit QueueWait(const FrameTrace& frame) : frame_(frame), submission_(Tracer::isOn() ? Tracer::now() : 0) {}

  /// Records the wait, and sets the calling thread's frame for the result's lifetime.
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
