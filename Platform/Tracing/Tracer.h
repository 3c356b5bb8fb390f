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

/// Stands for a text, such as a node's name, wherever something is recorded under it; see `Tracer::name`.
using TraceName = std::uint16_t;

/// What a duration is the duration of.
enum class TraceMeasure : std::uint8_t {
  span,     ///< a piece of work on one thread, without the pieces that were measured inside it
  wait,     ///< something stood in a queue
  gpu,      ///< the GPU's part of a piece of work
  latency,  ///< from a frame's arrival to some place
  offset,   ///< a difference of two times, of either sign
};

/// What was recorded since tracing began. Times in seconds.
struct TraceSummary {
  struct Duration {
    TraceMeasure measure = TraceMeasure::span;
    std::string name;
    std::uint64_t count = 0;
    double mean = 0;
    double p50 = 0;  ///< of the magnitudes, as is p99; both to 1.6 %
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
  std::uint64_t lostEvents = 0;  ///< that the trace file misses
};

/// The one instrument behind statistics and traces, on Linux's monotonic clock (`CLOCK_MONOTONIC`).
///
/// While it is off, a place that records costs the relaxed load of `isOn`. While it is on, nothing is allocated for an
/// event: durations go into histograms of fixed size, made once for each name, and events of the trace into a ring of
/// 4096 entries (160 kB) for each thread, which a thread of the trace's own empties 50 times a second. Events that find
/// the ring full are lost and counted; statistics lose nothing. There are at most 256 names and 64 pairs of stage and
/// reason; what comes after is recorded under "(other)". Any thread.
class TAVREL_API Tracer {
 public:
  static bool isOn() { return isOn_.load(std::memory_order_relaxed); }

  /// The number of `text`, the same for the process's lifetime. Not for every frame: it takes a lock.
  static TraceName name(std::string_view text);
  /// Valid until the process ends.
  static std::string_view text(TraceName name);
  /// The monotonic clock in nanoseconds.
  static std::int64_t now();

  /// Begins anew, with everything at zero. With a path, the events are written there as well, in the Trace Event Format
  /// (JSON) that Perfetto and Chrome's about:tracing open. Fails when the file cannot be written, and when tracing is
  /// on already.
  static Expected<void> start(const std::filesystem::path& traceFile = {});
  /// Ends the recording and completes the file; what was recorded can still be asked for. Fails when the file is
  /// incomplete: on a full disk, say.
  static Expected<void> stop();
  static TraceSummary summary();

  // What follows is for places that have asked `isOn`.

  /// A piece of work on this thread; `own` is its time without pieces measured inside it.
  static void span(TraceName name, std::int64_t begin, std::int64_t end, std::int64_t own);
  /// Something stood in a queue from `begin` until now.
  static void wait(TraceName queue, std::int64_t begin);
  /// What the GPU needed for work that was submitted at `begin`.
  static void gpu(TraceName name, std::int64_t begin, std::int64_t duration);
  /// `begin` until now.
  static void latency(TraceName name, std::int64_t begin);
  static void offset(TraceName name, std::int64_t difference);
  static void drop(TraceName stage, TraceName reason);
  static void count(TraceName what);
  static void level(TraceName what, std::int64_t value);

  /// How the calling thread is called in traces; it may be said before tracing begins. At most 47 characters.
  static void nameThread(std::string_view name);

 private:
  static std::atomic<bool> isOn_;
};

}  // namespace tavrel
