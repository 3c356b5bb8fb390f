#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What `TavrelTracing` has measured, from its start to this moment or to its stop. Times in seconds; percentiles to
/// 1.6 %. What was not measured has a count of 0.
struct TAVREL_API TavrelGraphStatistics {
  struct Durations {
    std::uint64_t count = 0;
    double mean = 0;
    double p50 = 0;
    double p99 = 0;
    double max = 0;
  };

  /// All nodes of one class together.
  struct Node {
    std::string name;
    /// How long each frame kept the node's thread: for filters, views and sources the video-processing queue. Without
    /// the nodes behind it, which are called from inside.
    Durations queueTime;
    /// How long the GPU took for the node's draws, where the driver offers GL_EXT_disjoint_timer_query. Only of nodes
    /// on the video-processing queue. A little fewer than frames when the GPU is very far behind.
    Durations gpuTime;
  };
  struct Wait {
    std::string queue;
    Durations time;  ///< of a frame, from its submission until the queue began with it
  };
  struct Drop {
    std::string stage;   ///< "camera" or "writer", and "writer, sound" for buffers of sound
    std::string reason;  ///< see Documentation/Troubleshooting.md
    std::uint64_t count = 0;
  };
  /// How far the sound was ahead of the pictures in the movie, each time a picture was appended to it: the movie time
  /// at which the sound appended so far ended, less the time of that picture. Below zero the sound was behind. It says
  /// how evenly the two arrive at the file, not how far apart the stamps of one event are in it. Pictures before the
  /// first sound are not counted.
  struct AudioLead {
    std::uint64_t count = 0;
    double mean = 0;
    double least = 0;
    double most = 0;
    double last = 0;
  };
  /// The framebuffers that the graph owns, whole numbers of them.
  struct FramebufferPool {
    std::uint64_t held = 0;      ///< in use now
    std::uint64_t mostHeld = 0;  ///< at the same time
    std::uint64_t cached = 0;    ///< idle now
    std::uint64_t created = 0;   ///< since the start; 0 in the steady state
  };

  double seconds = 0;                 ///< how long was measured
  std::uint64_t framesIn = 0;         ///< that came to the graph: from the camera, dropped ones included, or a movie
  std::uint64_t framesDelivered = 0;  ///< that the camera handed to its delegate
  std::uint64_t framesShown = 0;      ///< that a view has drawn
  std::uint64_t framesOut = 0;        ///< that were appended to a movie file
  std::uint64_t soundsIn = 0;         ///< buffers of sound, from the microphone
  std::uint64_t soundsOut = 0;        ///< that were appended to a movie file
  std::vector<Drop> drops;
  std::vector<Node> nodes;  ///< those that kept their thread longest first
  std::vector<Wait> waits;
  /// From the frame's arrival, at the camera or from a movie, until the camera's delegate was called and until it was
  /// appended to the movie file: handed to the encoder, which writes it somewhat later.
  Durations latencyToDelegate;
  Durations latencyToFile;
  AudioLead audioLead;
  FramebufferPool framebuffers;
  bool hasGPUTimes = false;           ///< the driver measures them
  std::uint64_t lostTraceEvents = 0;  ///< that the trace file misses, since they came too fast

  /// How many frames or sounds a stage has dropped, for whatever reason.
  std::uint64_t dropped(const std::string& stage) const;
  /// A table for people, in milliseconds, with a line feed at the end.
  std::string description() const;
  /// A JSON object, in seconds.
  std::string json() const;
};

}  // namespace tavrel
