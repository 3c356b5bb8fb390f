#include "Platform/Tracing/Tracer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/Private/TraceFile.h"
#include "Platform/Tracing/Private/TraceRings.h"
#include "Platform/Tracing/Private/TraceStatistics.h"

namespace tavrel {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

/// Numbers for texts. Never destroyed: threads record until the process ends.
struct Names {
  std::mutex mutex;
  std::array<std::string, TraceStatistics::kNames> texts;
  std::atomic<std::size_t> count = 1;

  Names() { texts[0] = "(other)"; }
};

Names& names() {
  static auto* const instance = new Names;
  return *instance;
}

/// One stretch of recording.
struct Session {
  std::mutex mutex;
  std::unique_ptr<TraceFile> file;
  std::atomic<bool> hasFile = false;
  std::atomic<std::int64_t> startTime = 0;
  std::atomic<std::int64_t> stopTime = 0;
};

Session& session() {
  static auto* const instance = new Session;
  return *instance;
}

void push(const TraceEvent& event) {
  if (session().hasFile.load(kRelaxed)) TraceRings::push(event);
}

TraceStatistics& statistics() { return TraceStatistics::shared(); }

}  // namespace

std::atomic<bool> Tracer::isOn_ = false;

TraceName Tracer::name(std::string_view text) {
  Names& all = names();
  const std::lock_guard lock(all.mutex);
  const std::size_t count = all.count.load(kRelaxed);
  const auto end = all.texts.begin() + static_cast<std::ptrdiff_t>(count);
  const auto known = std::find(all.texts.begin(), end, text);
  if (known != end) return static_cast<TraceName>(known - all.texts.begin());
  if (count == all.texts.size()) return 0;
  *end = text;
  all.count.store(count + 1, std::memory_order_release);
  return static_cast<TraceName>(count);
}

std::string_view Tracer::text(TraceName name) {
  return name < names().count.load(std::memory_order_acquire) ? names().texts[name] : names().texts[0];
}

std::int64_t Tracer::now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

Expected<void> Tracer::start(const std::filesystem::path& traceFile) {
  Session& all = session();
  const std::lock_guard lock(all.mutex);
  if (isOn()) return failure("tavrel", 1, "tracing is on already: stop it first");
  statistics().reset();
  TraceRings::clear();
  if (!traceFile.empty()) {
    auto file = TraceFile::create(traceFile, TraceRings::forEach);
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
  Session& all = session();
  const std::lock_guard lock(all.mutex);
  if (!isOn_.exchange(false)) return {};
  all.stopTime = now();
  all.hasFile = false;
  if (!all.file) return {};
  const std::unique_ptr<TraceFile> file = std::move(all.file);
  return file->finish(TraceRings::lostEvents());
}

TraceSummary Tracer::summary() {
  TraceSummary summary;
  const std::int64_t start = session().startTime;
  const std::int64_t stop = session().stopTime;
  if (start > 0) summary.seconds = static_cast<double>((stop > 0 ? stop : now()) - start) / 1e9;
  statistics().addTo(summary);
  summary.lostEvents = TraceRings::lostEvents();
  return summary;
}

void Tracer::span(TraceName name, std::int64_t begin, std::int64_t end, std::int64_t own) {
  statistics().record(TraceMeasure::span, name, own);
  push({.begin = begin, .value = end - begin, .frame = FrameTrace::current().number, .name = name});
}

void Tracer::wait(TraceName queue, std::int64_t begin) {
  const std::int64_t duration = now() - begin;
  statistics().record(TraceMeasure::wait, queue, duration);
  push({.begin = begin,
        .value = duration,
        .frame = FrameTrace::current().number,
        .name = queue,
        .kind = TraceEvent::Kind::wait});
}

void Tracer::gpu(TraceName name, std::int64_t begin, std::int64_t duration) {
  statistics().record(TraceMeasure::gpu, name, duration);
  push({.begin = begin, .value = duration, .name = name, .kind = TraceEvent::Kind::gpu});
}

void Tracer::latency(TraceName name, std::int64_t begin) {
  statistics().record(TraceMeasure::latency, name, now() - begin);
}

void Tracer::offset(TraceName name, std::int64_t difference) {
  statistics().record(TraceMeasure::offset, name, difference);
  push({.begin = now(), .value = difference, .name = name, .kind = TraceEvent::Kind::offset});
}

void Tracer::drop(TraceName stage, TraceName reason) {
  statistics().drop(stage, reason);
  push({.begin = now(), .name = stage, .detail = reason, .kind = TraceEvent::Kind::drop});
}

void Tracer::count(TraceName what) { statistics().count(what); }

void Tracer::level(TraceName what, std::int64_t value) {
  statistics().level(what, value);
  push({.begin = now(), .value = value, .name = what, .kind = TraceEvent::Kind::level});
}

void Tracer::nameThread(std::string_view name) { TraceRings::nameThread(name); }

}  // namespace tavrel
