#pragma once

#include <cstdint>

#include "Platform/Foundation/Export.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// Identifies the frame a thread works on, to attribute its work and measure its latency. It travels with the frame
/// from queue to queue: `current` takes it where work is submitted, a `Scope` sets it where the work runs. All zeros
/// while tracing is off.
struct TAVREL_API FrameTrace {
  std::uint32_t number = 0;  ///< from 1
  std::int64_t arrival = 0;  ///< `Tracer::now()` when the frame arrived

  /// A new frame, arriving now.
  static FrameTrace arriving();
  /// The calling thread's frame.
  static FrameTrace current();
  /// The calling thread's frame, or a new one.
  static FrameTrace currentOrArriving();

  /// Sets the calling thread's frame for the scope's lifetime.
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
