#pragma once

#include <filesystem>

#include "GPUImage/TavrelGraphStatistics.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Shows where a graph spends its time and loses its frames: statistics of every node, queue and drop, and, when a file
/// is named, a trace of each single one.
///
///     TavrelTracing::start("graph.json");
///     …  // run the camera, record
///     TavrelTracing::stop();
///     fmt::print("{}", TavrelTracing::statistics().description());
///
/// The trace is JSON in the Trace Event Format
/// (https://docs.google.com/document/d/1CvAClvFfyA5R-PhYUmn5OOQtYMH4h6I0nSsKchNAySU), which ui.perfetto.dev and
/// Chrome's about:tracing open; a process that is killed leaves a file that opens as well, up to its last 20 ms. Nodes
/// are spans on their threads, which have names; time in queues is spans on tracks of their own; GPU times and
/// framebuffers are counters; dropped frames are instants with stage and reason.
///
/// Off at first. While off, each node costs one relaxed atomic load a frame. While on, nothing is allocated for a
/// frame: see `Tracer` for the bounds, and for recording work of an application's own with `TraceSpan`. One recording
/// at a time, for the whole process. Any thread.
class TAVREL_API TavrelTracing {
 public:
  /// Begins to measure, from zero. Fails when `traceFile` cannot be written, and when it is on already.
  static Expected<void> start(const std::filesystem::path& traceFile = {});
  /// Ends the measurement; the statistics remain. Waits for the GPU. Fails when the trace is incomplete: on a full
  /// disk, say. Nothing happens while off.
  static Expected<void> stop();
  static bool isOn();
  /// Waits for the video-processing queue, not for the GPU: the times of the latest frames may be missing until `stop`.
  static TavrelGraphStatistics statistics();
};

}  // namespace tavrel
