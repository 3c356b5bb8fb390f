#pragma once

#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// How long the GPU needs for the draws of each node, by GL_EXT_disjoint_timer_query
/// (https://registry.khronos.org/OpenGL/extensions/EXT/EXT_disjoint_timer_query.txt). Results are asked for when more
/// than 64 draws, some frames, have followed, and never waited for; a draw that finds all 96 queries on their way is
/// not timed. Each node's commands are flushed, so that the GPU begins with them at once and its idle time is not taken
/// for work. Results that the driver calls disjoint are thrown away, and those that cannot be. On the video-processing
/// queue.
class GPUTimer {
 public:
  static GPUTimer& shared();
  /// False where the driver does not offer the extension.
  bool isAvailable();

  /// What is drawn from here on, until `end`, is the node's. One at a time: a second `begin` ends the first.
  void begin(TraceName node);
  void end();
  /// Takes the results that there are; with `waits`, all of them.
  void collect(bool waits);
  /// Forgets what is on its way: it belongs to an earlier recording.
  void discard();

 private:
  static constexpr std::size_t kQueries = 96;
  static constexpr std::size_t kInFlight = 64;

  struct Query {
    GLuint identifier = 0;
    TraceName node = 0;
    std::int64_t begin = 0;
  };

  bool prepare();
  bool takeOldest(bool waits);

  enum class State { unknown, available, missing } state_ = State::unknown;
  std::array<Query, kQueries> queries_;
  std::size_t first_ = 0;  // the oldest on its way
  std::size_t count_ = 0;
  bool isRunning_ = false;
  PFNGLBEGINQUERYEXTPROC beginQuery_ = nullptr;
  PFNGLENDQUERYEXTPROC endQuery_ = nullptr;
  PFNGLGETQUERYOBJECTUIVEXTPROC getQueryObject_ = nullptr;
  PFNGLGETQUERYOBJECTUI64VEXTPROC getQueryObject64_ = nullptr;
};

}  // namespace tavrel
