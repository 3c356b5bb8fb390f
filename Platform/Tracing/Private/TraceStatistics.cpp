#include "Platform/Tracing/Private/TraceStatistics.h"

#include <memory>
#include <string>

namespace tavrel {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

double secondsOf(double nanoseconds) { return nanoseconds / 1e9; }

std::string textOf(std::size_t name) { return std::string(Tracer::text(static_cast<TraceName>(name))); }

}  // namespace

TraceStatistics& TraceStatistics::shared() {
  static auto* const statistics = new TraceStatistics;
  return *statistics;
}

void TraceStatistics::record(TraceMeasure measure, TraceName name, std::int64_t duration) {
  std::atomic<DurationHistogram*>& entry = durations_[static_cast<std::size_t>(measure)][name];
  DurationHistogram* histogram = entry.load(std::memory_order_acquire);
  if (!histogram) {
    auto made = std::make_unique<DurationHistogram>();
    // Another thread may have been quicker.
    if (entry.compare_exchange_strong(histogram, made.get(), std::memory_order_acq_rel)) histogram = made.release();
  }
  histogram->add(duration);
}

TraceStatistics::DropCount& TraceStatistics::dropCount(TraceName stage, TraceName reason) {
  const std::uint32_t key = (std::uint32_t{stage} << 16 | reason) + 1;
  for (std::size_t i = 0; i + 1 < kDropKinds; ++i) {
    std::uint32_t known = drops_[i].key.load(kRelaxed);
    if (known == 0 && drops_[i].key.compare_exchange_strong(known, key, kRelaxed)) return drops_[i];
    if (known == key) return drops_[i];
  }
  drops_.back().key.store(1, kRelaxed);  // (other), (other)
  return drops_.back();
}

void TraceStatistics::drop(TraceName stage, TraceName reason) { dropCount(stage, reason).count.fetch_add(1, kRelaxed); }

void TraceStatistics::level(TraceName what, std::int64_t value) {
  LevelRange& range = levels_[what];
  range.last.store(value, kRelaxed);
  if (!range.isKnown.exchange(true, kRelaxed)) range.most.store(value, kRelaxed);
  std::int64_t most = range.most.load(kRelaxed);
  while (value > most && !range.most.compare_exchange_weak(most, value, kRelaxed)) {
  }
}

void TraceStatistics::reset() {
  for (auto& measure : durations_) {
    for (auto& entry : measure) {
      if (DurationHistogram* const histogram = entry) histogram->reset();
    }
  }
  for (auto& drop : drops_) drop.count = 0;
  for (auto& count : counts_) count = 0;
  for (auto& level : levels_) level.isKnown = false;
}

void TraceStatistics::addTo(TraceSummary& summary) const {
  for (std::size_t measure = 0; measure < kMeasures; ++measure) {
    for (std::size_t name = 0; name < kNames; ++name) {
      const DurationHistogram* const histogram = durations_[measure][name];
      if (!histogram || histogram->count() == 0) continue;
      summary.durations.push_back({.measure = static_cast<TraceMeasure>(measure),
                                   .name = textOf(name),
                                   .count = histogram->count(),
                                   .mean = secondsOf(histogram->mean()),
                                   .p50 = secondsOf(histogram->percentile(0.5)),
                                   .p99 = secondsOf(histogram->percentile(0.99)),
                                   .least = secondsOf(static_cast<double>(histogram->least())),
                                   .most = secondsOf(static_cast<double>(histogram->most())),
                                   .last = secondsOf(static_cast<double>(histogram->last()))});
    }
  }
  for (const DropCount& drop : drops_) {
    if (drop.count == 0) continue;
    const std::uint32_t key = drop.key - 1;
    summary.drops.push_back({textOf(key >> 16), textOf(key & 0xFFFF), drop.count});
  }
  for (std::size_t name = 0; name < kNames; ++name) {
    if (counts_[name] > 0) summary.counts.push_back({textOf(name), counts_[name]});
    const LevelRange& level = levels_[name];
    if (level.isKnown) summary.levels.push_back({textOf(name), level.last, level.most});
  }
}

}  // namespace tavrel
