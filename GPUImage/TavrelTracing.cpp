#include "GPUImage/TavrelTracing.h"

#include <algorithm>
#include <atomic>

#include "GPUImage/Private/GPUTimer.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Tracing/TraceNames.h"

namespace tavrel {
namespace {

using Statistics = TavrelGraphStatistics;

std::atomic<bool> hasGPUTimes = false;

Statistics::Durations durations(const TraceSummary::Duration& measured) {
  return {measured.count, measured.mean, measured.p50, measured.p99, measured.most};
}

Statistics::Node& nodeNamed(std::vector<Statistics::Node>& nodes, const std::string& name) {
  const auto known = std::find_if(nodes.begin(), nodes.end(), [&](const auto& node) { return node.name == name; });
  if (known != nodes.end()) return *known;
  nodes.push_back({.name = name, .queueTime = {}, .gpuTime = {}});
  return nodes.back();
}

void take(Statistics& statistics, const TraceSummary::Duration& measured) {
  switch (measured.measure) {
    case TraceMeasure::span: nodeNamed(statistics.nodes, measured.name).queueTime = durations(measured); return;
    case TraceMeasure::gpu: nodeNamed(statistics.nodes, measured.name).gpuTime = durations(measured); return;
    case TraceMeasure::wait: statistics.waits.push_back({measured.name, durations(measured)}); return;
    case TraceMeasure::latency:
      (measured.name == Tracer::text(TraceNames::shared().toDelegate) ? statistics.latencyToDelegate
                                                                      : statistics.latencyToFile) = durations(measured);
      return;
    case TraceMeasure::offset:
      statistics.audioLead = {measured.count, measured.mean, measured.least, measured.most, measured.last};
      return;
  }
}

}  // namespace

Expected<void> TavrelTracing::start(const std::filesystem::path& traceFile) {
  if (auto started = Tracer::start(traceFile); !started) return started;
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {
    GPUTimer::shared().discard();
    hasGPUTimes = GPUTimer::shared().isAvailable();
    TavrelGPUImageContext::sharedFramebufferCache()->traceOccupancy();
  });
  return {};
}

Expected<void> TavrelTracing::stop() {
  if (!isOn()) return {};
  TavrelRunSynchronouslyOnVideoProcessingQueue([] { GPUTimer::shared().collect(true); });
  return Tracer::stop();
}

bool TavrelTracing::isOn() { return Tracer::isOn(); }

TavrelGraphStatistics TavrelTracing::statistics() {
  if (isOn()) TavrelRunSynchronouslyOnVideoProcessingQueue([] { GPUTimer::shared().collect(false); });
  const TraceSummary summary = Tracer::summary();
  const TraceNames& names = TraceNames::shared();
  const auto count = [&](TraceName what) -> std::uint64_t {
    for (const auto& entry : summary.counts) {
      if (entry.name == Tracer::text(what)) return entry.count;
    }
    return 0;
  };
  const auto level = [&](TraceName what) -> TraceSummary::Level {
    for (const auto& entry : summary.levels) {
      if (entry.name == Tracer::text(what)) return entry;
    }
    return {};
  };

  Statistics statistics;
  statistics.seconds = summary.seconds;
  statistics.framesIn = count(names.framesIn);
  statistics.framesDelivered = count(names.framesDelivered);
  statistics.framesShown = count(names.framesShown);
  statistics.framesOut = count(names.framesOut);
  statistics.soundsIn = count(names.soundsIn);
  statistics.soundsOut = count(names.soundsOut);
  for (const auto& drop : summary.drops) statistics.drops.push_back({drop.stage, drop.reason, drop.count});
  for (const auto& measured : summary.durations) take(statistics, measured);
  std::sort(statistics.nodes.begin(), statistics.nodes.end(), [](const auto& left, const auto& right) {
    return left.queueTime.mean * double(left.queueTime.count) > right.queueTime.mean * double(right.queueTime.count);
  });
  const auto held = level(names.framebuffersHeld);
  statistics.framebuffers = {static_cast<std::uint64_t>(held.last), static_cast<std::uint64_t>(held.most),
                             static_cast<std::uint64_t>(level(names.framebuffersCached).last),
                             count(names.framebuffersCreated)};
  statistics.hasGPUTimes = hasGPUTimes;
  statistics.lostTraceEvents = summary.lostEvents;
  return statistics;
}

}  // namespace tavrel
