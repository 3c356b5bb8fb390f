#pragma once

#include <cstdint>

#include "Platform/Foundation/Export.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// Which frame a thread works on, so that its pieces of work can be told from other frames' and its latency be
/// measured. It travels with the frame from queue to queue: taken by `current` where work is submitted, put in place by
/// a `Scope` where it runs. All zeros while tracing is off.
struct TAVREL_API FrameTrace {
  std::uint32_t number = 0;  ///< counts up from 1
  std::int64_t arrival = 0;  ///< `Tracer::now()` at the arrival of the frame

  /// A frame that arrives now.
  static FrameTrace arriving();
  /// The calling thread's frame.
  static FrameTrace current();
  /// The calling thread's frame, or one that arrives now when there is none.
  static FrameTrace currentOrArriving();

  /// Makes a frame the calling thread's for as long as the scope lives.
  class TAVREL_API Scope {
   public:
    explicit Scope(const FrameTrace& frame);
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

   private:
    const std::uint32_t outerNumber_;
    const std::int64_t outerArrival_;
  };
};

}  // namespace tavrel
