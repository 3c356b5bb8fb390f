#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Platform/Tracing/Private/DurationHistogram.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// What is counted and measured under each name, in memory of fixed size; nothing waits. Never destroyed: threads
/// record until the process ends. Any thread.
class TraceStatistics {
 public:
  static constexpr std::size_t kNames = 256;

  static TraceStatistics& shared();

  void record(TraceMeasure measure, TraceName name, std::int64_t duration);
  void drop(TraceName stage, TraceName reason);
  void count(TraceName what) { counts_[what].fetch_add(1, std::memory_order_relaxed); }
  void level(TraceName what, std::int64_t value);

  /// Everything at zero.
  void reset();
  void addTo(TraceSummary& summary) const;

 private:
  static constexpr std::size_t kMeasures = 5;
  static constexpr std::size_t kDropKinds = 64;

  struct DropCount {
    std::atomic<std::uint32_t> key = 0;  // stage and reason; 0 while free
    std::atomic<std::uint64_t> count = 0;
  };
  struct LevelRange {
    std::atomic<bool> isKnown = false;
    std::atomic<std::int64_t> last = 0;
    std::atomic<std::int64_t> most = 0;
  };

  DropCount& dropCount(TraceName stage, TraceName reason);

  std::array<std::array<std::atomic<DurationHistogram*>, kNames>, kMeasures> durations_{};
  std::array<DropCount, kDropKinds> drops_;
  std::array<LevelRange, kNames> levels_;
  std::array<std::atomic<std::uint64_t>, kNames> counts_{};
};

}  // namespace tavrel
