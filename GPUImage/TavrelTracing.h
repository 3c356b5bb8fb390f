#pragma once

#include <filesystem>

#include "GPUImage/TavrelGraphStatistics.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Measures where a graph spends time and drops frames: statistics of nodes, queues and drops and, if a file is given,
/// a trace of every single event.
///
///     TavrelTracing::start("graph.json");
///     …  // run the camera, record
///     TavrelTracing::stop();
///     fmt::print("{}", TavrelTracing::statistics().description());
///
/// The trace is JSON in the Trace Event Format
/// (https://docs.google.com/document/d/1CvAClvFfyA5R-PhYUmn5OOQtYMH4h6I0nSsKchNAySU), for ui.perfetto.dev and Chrome's
/// about:tracing. If the process is killed, the file lacks at most the last 20 ms. Nodes are spans on their threads,
/// waits are spans on tracks of their own, GPU times and framebuffers are counters, and dropped frames are instants
/// with stage and reason.
///
/// Initially off, at the cost of one relaxed atomic load per node and frame. While on, nothing is allocated per frame.
/// See `Tracer` for its limits, and `TraceSpan` to record an application's own work. One recording at a time, for the
/// whole process. Any thread.
class TAVREL_API TavrelTracing {
 public:
  /// Starts measuring, from zero. Fails if `traceFile` cannot be written or tracing is on.
  static Expected<void> start(const std::filesystem::path& traceFile = {});
  /// Stops measuring, after waiting for the GPU; the statistics remain. Fails if the trace is incomplete, for instance
  /// because the disk is full. Has no effect while off.
  static Expected<void> stop();
  static bool isOn();
  /// Waits for the video-processing queue, but not for the GPU: the latest GPU times may be missing until `stop`.
  static TavrelGraphStatistics statistics();
};

}  // namespace tavrel
