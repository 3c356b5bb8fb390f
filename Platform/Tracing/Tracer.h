#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// The number of a name under which something is recorded; see `Tracer::name`.
using TraceName = std::uint16_t;

/// What a duration measures.
enum class TraceMeasure : std::uint8_t {
  span,     ///< work on one thread, excluding nested spans
  wait,     ///< time in a queue
  gpu,      ///< GPU time
  latency,  ///< from a frame's arrival to some point
  offset,   ///< a signed difference of two times
};

/// What was recorded since tracing began. Times are in seconds.
struct TraceSummary {
  struct Duration {
    TraceMeasure measure = TraceMeasure::span;
    std::string name;
    std::uint64_t count = 0;
    double mean = 0;
    double p50 = 0;  ///< of the magnitudes, like p99; both exact to 1.6 %
    double p99 = 0;
    double least = 0;
    double most = 0;
    double last = 0;
  };
  struct Drop {
    std::string stage;
    std::string reason;
    std::uint64_t count = 0;
  };
  struct Level {
    std::string name;
    std::int64_t last = 0;
    std::int64_t most = 0;
  };
  struct Count {
    std::string name;
    std::uint64_t count = 0;
  };

  double seconds = 0;  ///< how long tracing has been on
  std::vector<Duration> durations;
  std::vector<Drop> drops;
  std::vector<Level> levels;
  std::vector<Count> counts;
  std::uint64_t lostEvents = 0;  ///< missing from the trace file
};

/// Records statistics and traces, on `CLOCK_MONOTONIC`.
///
/// While off, recording costs the relaxed load of `isOn`. While on, events allocate nothing: durations go into one
/// fixed-size histogram per name, and events of the trace into a ring of 4096 entries (160 kB) per thread, which a
/// thread of its own empties every 20 ms. Events that find the ring full are lost and counted; statistics lose nothing.
/// Names beyond 256, and pairs of stage and reason beyond 64, are recorded as "(other)". Any thread.
class TAVREL_API Tracer {
 public:
  static bool isOn() { return isOn_.load(std::memory_order_relaxed); }

  /// The number of `text`, fixed for the process's lifetime. Takes a lock: do not call it per frame.
  static TraceName name(std::string_view text);
  /// Valid until the process ends.
  static std::string_view text(TraceName name);
  /// The monotonic clock in nanoseconds.
  static std::int64_t now();

  /// Starts recording, from zero. With a path, events are also written there in the Trace Event Format (JSON), for
  /// Perfetto and Chrome's about:tracing. Fails if the file cannot be written or tracing is on.
  static Expected<void> start(const std::filesystem::path& traceFile = {});
  /// Stops recording and completes the file; the summary remains. Fails if the file is incomplete, for instance because
  /// the disk is full.
  static Expected<void> stop();
  static TraceSummary summary();

  // Call these only while `isOn`.

  /// Work on this thread; `own` excludes nested spans.
  static void span(TraceName name, std::int64_t begin, std::int64_t end, std::int64_t own);
  /// Time in a queue from `begin` until now.
  static void wait(TraceName queue, std::int64_t begin);
  /// GPU time of work submitted at `begin`.
  static void gpu(TraceName name, std::int64_t begin, std::int64_t duration);
  /// `begin` until now.
  static void latency(TraceName name, std::int64_t begin);
  static void offset(TraceName name, std::int64_t difference);
  static void drop(TraceName stage, TraceName reason);
  static void count(TraceName what);
  static void level(TraceName what, std::int64_t value);

  /// The calling thread's name in traces, at most 47 characters; may be set before tracing starts.
  static void nameThread(std::string_view name);

 private:
  static std::atomic<bool> isOn_;
};

}  // namespace tavrel
