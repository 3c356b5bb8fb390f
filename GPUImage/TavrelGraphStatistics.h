#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Results of `TavrelTracing` since its start. Times are in seconds, percentiles exact to 1.6 %. What was not measured
/// has a count of 0.
struct TAVREL_API TavrelGraphStatistics {
  struct Durations {
    std::uint64_t count = 0;
    double mean = 0;
    double p50 = 0;
    double p99 = 0;
    double max = 0;
  };

  /// All nodes of one class.
  struct Node {
    std::string name;
    /// Time of each frame on the node's thread, which for filters, views and sources is the video-processing queue.
    /// Excludes the targets, which the node calls.
    Durations queueTime;
    /// GPU time of the node's draws, if the driver offers GL_EXT_disjoint_timer_query. Only for nodes on the
    /// video-processing queue. May miss frames if the GPU is far behind.
    Durations gpuTime;
  };
  struct Wait {
    std::string queue;
    Durations time;  ///< from a frame's submission until the queue started on it
  };
  struct Drop {
    std::string stage;   ///< "camera", "writer" or, for audio buffers, "writer, sound"
    std::string reason;  ///< see Documentation/Troubleshooting.md
    std::uint64_t count = 0;
  };
  /// How far audio was ahead of video at each appended frame: the movie time of the end of the appended audio minus
  /// that of the frame; negative if audio was behind. It measures how evenly the two arrive at the file, not how well
  /// they are synchronised. Frames before the first audio are not counted.
  struct AudioLead {
    std::uint64_t count = 0;
    double mean = 0;
    double least = 0;
    double most = 0;
    double last = 0;
  };
  /// The framebuffers that the graph owns.
  struct FramebufferPool {
    std::uint64_t held = 0;      ///< in use now
    std::uint64_t mostHeld = 0;  ///< at the same time
    std::uint64_t cached = 0;    ///< idle now
    std::uint64_t created = 0;   ///< since the start; 0 in the steady state
  };

  double seconds = 0;                 ///< duration of the measurement
  std::uint64_t framesIn = 0;         ///< into the graph: from the camera, including dropped ones, or a movie
  std::uint64_t framesDelivered = 0;  ///< passed to the camera's delegate
  std::uint64_t framesShown = 0;      ///< drawn by a view
  std::uint64_t framesOut = 0;        ///< that were appended to a movie file
  std::uint64_t soundsIn = 0;         ///< audio buffers from the microphone
  std::uint64_t soundsOut = 0;        ///< that were appended to a movie file
  std::vector<Drop> drops;
  std::vector<Node> nodes;  ///< longest total thread time first
  std::vector<Wait> waits;
  /// From a frame's arrival, at the camera or from a movie, to the call of the camera's delegate, and to its hand-over
  /// to the encoder, which writes it somewhat later.
  Durations latencyToDelegate;
  Durations latencyToFile;
  AudioLead audioLead;
  FramebufferPool framebuffers;
  bool hasGPUTimes = false;           ///< whether the driver measures GPU times
  std::uint64_t lostTraceEvents = 0;  ///< missing from the trace file, because they came too fast

  /// Number of frames or audio buffers dropped by a stage.
  std::uint64_t dropped(const std::string& stage) const;
  /// A human-readable table in milliseconds, ending with a newline.
  std::string description() const;
  /// A JSON object, in seconds.
  std::string json() const;
};

}  // namespace tavrel
