#include "Platform/Tracing/Tracer.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/Private/DurationHistogram.h"
#include "Platform/Tracing/Private/TraceFile.h"
#include "Platform/Tracing/Private/TraceRing.h"

namespace tavrel {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr std::size_t kNames = 256;
constexpr std::size_t kMeasures = 5;
constexpr std::size_t kDropKinds = 64;

struct DropCount {
  std::atomic<std::uint32_t> key = 0;  // stage and reason; 0 while free
  std::atomic<std::uint64_t> count = 0;
};

struct LevelRange {
  std::atomic<bool> isKnown = false;
  std::atomic<std::int64_t> last = 0;
  std::atomic<std::int64_t> most = 0;
};

/// Everything that is recorded. Never destroyed: threads record until the process ends.
struct Records {
  std::mutex namesMutex;
  std::array<std::string, kNames> names;
  std::atomic<std::size_t> nameCount = 1;

  std::array<std::array<std::atomic<DurationHistogram*>, kNames>, kMeasures> durations{};
  std::array<DropCount, kDropKinds> drops;
  std::array<LevelRange, kNames> levels;
  std::array<std::atomic<std::uint64_t>, kNames> counts{};

  std::mutex ringsMutex;
  std::vector<std::shared_ptr<TraceRing>> rings;
  std::uint64_t lostByEndedThreads = 0;

  std::mutex controlMutex;
  std::unique_ptr<TraceFile> file;
  std::atomic<bool> hasFile = false;
  std::atomic<std::int64_t> startTime = 0;
  std::atomic<std::int64_t> stopTime = 0;

  Records() { names[0] = "(other)"; }
};

Records& records() {
  static auto* const all = new Records;
  return *all;
}

constexpr std::size_t kLongestThreadName = 47;
// Without destructors: a thread may record while it takes its own variables down.
thread_local std::array<char, kLongestThreadName + 1> threadName{};
thread_local TraceRing* threadRing = nullptr;

struct RingRelease {
  ~RingRelease() {
    if (TraceRing* const ring = std::exchange(threadRing, nullptr)) ring->isEnded = true;
  }
};

std::string nameOfThisThread() {
  if (threadName[0] != 0) return threadName.data();
  if (gettid() == getpid()) return "main";
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

TraceRing& ringOfThisThread() {
  if (threadRing) return *threadRing;
  thread_local const RingRelease release;
  static_cast<void>(release);
  auto ring = std::make_shared<TraceRing>(nameOfThisThread());
  threadRing = ring.get();
  const std::lock_guard lock(records().ringsMutex);
  records().rings.push_back(std::move(ring));
  return *threadRing;
}

void push(const TraceEvent& event) {
  if (records().hasFile.load(kRelaxed)) ringOfThisThread().push(event);
}

/// Calls `action` for every ring, and lets go of those whose threads are gone.
void forEachRing(const std::function<void(TraceRing&)>& action) {
  std::vector<std::shared_ptr<TraceRing>> rings;
  {
    const std::lock_guard lock(records().ringsMutex);
    rings = records().rings;
  }
  for (const auto& ring : rings) {
    const bool isEnded = ring->isEnded;
    action(*ring);
    if (!isEnded) continue;
    const std::lock_guard lock(records().ringsMutex);
    records().lostByEndedThreads += ring->lost;
    std::erase(records().rings, ring);
  }
}

std::uint64_t lostEvents() {
  const std::lock_guard lock(records().ringsMutex);
  std::uint64_t lost = records().lostByEndedThreads;
  for (const auto& ring : records().rings) lost += ring->lost;
  return lost;
}

void forgetEverything() {
  Records& all = records();
  for (auto& measure : all.durations) {
    for (auto& entry : measure) {
      if (DurationHistogram* const histogram = entry) histogram->reset();
    }
  }
  for (auto& drop : all.drops) drop.count = 0;
  for (auto& count : all.counts) count = 0;
  for (auto& level : all.levels) level.isKnown = false;
  forEachRing([](TraceRing& ring) {
    ring.drain([](const TraceEvent&) {});
    ring.lost = 0;
    ring.nameAgain();
  });
  const std::lock_guard lock(all.ringsMutex);
  all.lostByEndedThreads = 0;
}

void record(TraceMeasure measure, TraceName name, std::int64_t duration) {
  std::atomic<DurationHistogram*>& entry = records().durations[static_cast<std::size_t>(measure)][name];
  DurationHistogram* histogram = entry.load(std::memory_order_acquire);
  if (!histogram) {
    auto made = std::make_unique<DurationHistogram>();
    // Another thread may have been quicker.
    if (entry.compare_exchange_strong(histogram, made.get(), std::memory_order_acq_rel)) histogram = made.release();
  }
  histogram->add(duration);
}

DropCount& dropCount(TraceName stage, TraceName reason) {
  const std::uint32_t key = (std::uint32_t{stage} << 16 | reason) + 1;
  auto& drops = records().drops;
  for (std::size_t i = 0; i + 1 < kDropKinds; ++i) {
    std::uint32_t known = drops[i].key.load(kRelaxed);
    if (known == 0 && drops[i].key.compare_exchange_strong(known, key, kRelaxed)) return drops[i];
    if (known == key) return drops[i];
  }
  drops.back().key.store(1, kRelaxed);  // (other), (other)
  return drops.back();
}

double secondsOf(double nanoseconds) {
  return nanoseconds / 1e9;
}

}  // namespace

std::atomic<bool> Tracer::isOn_ = false;

TraceName Tracer::name(std::string_view text) {
  Records& all = records();
  const std::lock_guard lock(all.namesMutex);
  const std::size_t count = all.nameCount.load(kRelaxed);
  const auto end = all.names.begin() + static_cast<std::ptrdiff_t>(count);
  const auto known = std::find(all.names.begin(), end, text);
  if (known != end) return static_cast<TraceName>(known - all.names.begin());
  if (count == kNames) return 0;
  *end = text;
  all.nameCount.store(count + 1, std::memory_order_release);
  return static_cast<TraceName>(count);
}

std::string_view Tracer::text(TraceName name) {
  return name < records().nameCount.load(std::memory_order_acquire) ? records().names[name] : records().names[0];
}

std::int64_t Tracer::now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

Expected<void> Tracer::start(const std::filesystem::path& traceFile) {
  Records& all = records();
  const std::lock_guard lock(all.controlMutex);
  if (isOn()) return failure("tavrel", 1, "tracing is on already: stop it first");
  forgetEverything();
  if (!traceFile.empty()) {
    auto file = TraceFile::create(traceFile, forEachRing);
    if (!file) return tl::unexpected(file.error());
    all.file = std::move(*file);
    // A process that ends without stopping leaves a complete file all the same.
    static std::once_flag isRegistered;
    std::call_once(isRegistered, [] {
      ProcessEnd::at(ProcessEnd::Stage::trace, [] { [[maybe_unused]] const auto stopped = stop(); });
    });
  }
  all.hasFile = all.file != nullptr;
  all.startTime = now();
  all.stopTime = 0;
  isOn_ = true;
  return {};
}

Expected<void> Tracer::stop() {
  Records& all = records();
  const std::lock_guard lock(all.controlMutex);
  if (!isOn_.exchange(false)) return {};
  all.stopTime = now();
  all.hasFile = false;
  if (!all.file) return {};
  const std::unique_ptr<TraceFile> file = std::move(all.file);
  return file->finish(lostEvents());
}

TraceSummary Tracer::summary() {
  Records& all = records();
  TraceSummary summary;
  const std::int64_t stop = all.stopTime;
  if (all.startTime > 0) summary.seconds = secondsOf(static_cast<double>((stop > 0 ? stop : now()) - all.startTime));
  for (std::size_t measure = 0; measure < kMeasures; ++measure) {
    for (std::size_t name = 0; name < kNames; ++name) {
      const DurationHistogram* const histogram = all.durations[measure][name];
      if (!histogram || histogram->count() == 0) continue;
      summary.durations.push_back({.measure = static_cast<TraceMeasure>(measure),
                                   .name = all.names[name],
                                   .count = histogram->count(),
                                   .mean = secondsOf(histogram->mean()),
                                   .p50 = secondsOf(histogram->percentile(0.5)),
                                   .p99 = secondsOf(histogram->percentile(0.99)),
                                   .least = secondsOf(static_cast<double>(histogram->least())),
                                   .most = secondsOf(static_cast<double>(histogram->most())),
                                   .last = secondsOf(static_cast<double>(histogram->last()))});
    }
  }
  for (const DropCount& drop : all.drops) {
    if (drop.count == 0) continue;
    const std::uint32_t key = drop.key - 1;
    summary.drops.push_back({std::string(text(static_cast<TraceName>(key >> 16))),
                             std::string(text(static_cast<TraceName>(key & 0xFFFF))), drop.count});
  }
  for (std::size_t name = 0; name < kNames; ++name) {
    if (all.counts[name] > 0) summary.counts.push_back({all.names[name], all.counts[name]});
    const LevelRange& level = all.levels[name];
    if (level.isKnown) summary.levels.push_back({all.names[name], level.last, level.most});
  }
  summary.lostEvents = lostEvents();
  return summary;
}

void Tracer::span(TraceName name, std::int64_t begin, std::int64_t end, std::int64_t own) {
  record(TraceMeasure::span, name, own);
  push({.begin = begin, .value = end - begin, .frame = FrameTrace::current().number, .name = name});
}

void Tracer::wait(TraceName queue, std::int64_t begin) {
  const std::int64_t duration = now() - begin;
  record(TraceMeasure::wait, queue, duration);
  push({.begin = begin,
        .value = duration,
        .frame = FrameTrace::current().number,
        .name = queue,
        .kind = TraceEvent::Kind::wait});
}

void Tracer::gpu(TraceName name, std::int64_t begin, std::int64_t duration) {
  record(TraceMeasure::gpu, name, duration);
  push({.begin = begin, .value = duration, .name = name, .kind = TraceEvent::Kind::gpu});
}

void Tracer::latency(TraceName name, std::int64_t begin) {
  record(TraceMeasure::latency, name, now() - begin);
}

void Tracer::offset(TraceName name, std::int64_t difference) {
  record(TraceMeasure::offset, name, difference);
  push({.begin = now(), .value = difference, .name = name, .kind = TraceEvent::Kind::offset});
}

void Tracer::drop(TraceName stage, TraceName reason) {
  dropCount(stage, reason).count.fetch_add(1, kRelaxed);
  push({.begin = now(), .name = stage, .detail = reason, .kind = TraceEvent::Kind::drop});
}

void Tracer::count(TraceName what) {
  records().counts[what].fetch_add(1, kRelaxed);
}

void Tracer::level(TraceName what, std::int64_t value) {
  LevelRange& range = records().levels[what];
  range.last.store(value, kRelaxed);
  if (!range.isKnown.exchange(true, kRelaxed)) range.most.store(value, kRelaxed);
  std::int64_t most = range.most.load(kRelaxed);
  while (value > most && !range.most.compare_exchange_weak(most, value, kRelaxed)) {
  }
  push({.begin = now(), .value = value, .name = what, .kind = TraceEvent::Kind::level});
}

void Tracer::nameThread(std::string_view name) {
  const std::size_t length = name.copy(threadName.data(), kLongestThreadName);
  threadName[length] = 0;
  if (threadRing) threadRing->setThreadName(std::string(name));
}

}  // namespace tavrel
