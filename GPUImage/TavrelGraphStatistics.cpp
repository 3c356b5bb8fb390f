#include "GPUImage/TavrelGraphStatistics.h"

#include <fmt/format.h>

#include <iterator>

#include "Platform/Foundation/JSONString.h"

namespace tavrel {
namespace {

using Statistics = TavrelGraphStatistics;

/// Milliseconds, or a dash where nothing was measured.
std::string milliseconds(std::uint64_t count, double seconds) {
  return count == 0 ? "-" : fmt::format("{:.2f}", seconds * 1000);
}

std::string row(std::string_view name, const Statistics::Durations& times) {
  return fmt::format("  {:<40} {:>8} {:>9} {:>9} {:>9} {:>9}", name, times.count, milliseconds(times.count, times.mean),
                     milliseconds(times.count, times.p50), milliseconds(times.count, times.p99),
                     milliseconds(times.count, times.max));
}

std::string heading(std::string_view title) {
  return fmt::format("{:<42} {:>8} {:>9} {:>9} {:>9} {:>9}", title, "count", "mean", "p50", "p99", "max");
}

std::string json(const Statistics::Durations& times) {
  return fmt::format(R"({{"count": {}, "mean": {:.6f}, "p50": {:.6f}, "p99": {:.6f}, "max": {:.6f}}})", times.count,
                     times.mean, times.p50, times.p99, times.max);
}

/// `[…, …]` of what `write` makes of each item.
template <typename Items, typename Write>
std::string jsonList(const Items& items, Write write) {
  std::string list = "[";
  for (const auto& item : items) list += (list.size() > 1 ? ", " : "") + write(item);
  return list + "]";
}

}  // namespace

std::uint64_t TavrelGraphStatistics::dropped(const std::string& stage) const {
  std::uint64_t count = 0;
  for (const Drop& drop : drops) {
    if (drop.stage == stage) count += drop.count;
  }
  return count;
}

std::string TavrelGraphStatistics::description() const {
  std::string text;
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "{:.1f} s: {} frames in, {} delivered, {} shown, {} out; {} sound buffers in, {} out\n", seconds,
                 framesIn, framesDelivered, framesShown, framesOut, soundsIn, soundsOut);
  for (const Drop& drop : drops) {
    fmt::format_to(out, "  dropped by the {}: {} ({})\n", drop.stage, drop.count, drop.reason);
  }
  if (drops.empty()) text += "  nothing dropped\n";

  fmt::format_to(out, "\n{}\n", heading("Time on the queue, ms"));
  for (const Node& node : nodes) fmt::format_to(out, "{}\n", row(node.name, node.queueTime));
  if (hasGPUTimes) {
    fmt::format_to(out, "\n{}\n", heading("Time on the GPU, ms"));
    for (const Node& node : nodes) {
      if (node.gpuTime.count > 0) fmt::format_to(out, "{}\n", row(node.name, node.gpuTime));
    }
  } else {
    text += "\nNo times on the GPU: the driver lacks GL_EXT_disjoint_timer_query\n";
  }
  if (!waits.empty()) fmt::format_to(out, "\n{}\n", heading("Waiting, ms"));
  for (const Wait& wait : waits) fmt::format_to(out, "{}\n", row(wait.queue, wait.time));
  if (latencyToDelegate.count + latencyToFile.count > 0) fmt::format_to(out, "\n{}\n", heading("Latency, ms"));
  if (latencyToDelegate.count > 0) fmt::format_to(out, "{}\n", row("arrival to delegate", latencyToDelegate));
  if (latencyToFile.count > 0) fmt::format_to(out, "{}\n", row("arrival to movie file", latencyToFile));
  if (audioLead.count > 0) {
    fmt::format_to(out,
                   "\nSound ahead of the pictures in the movie, ms: mean {:.1f}, from {:.1f} to {:.1f}, last {:.1f}\n",
                   audioLead.mean * 1000, audioLead.least * 1000, audioLead.most * 1000, audioLead.last * 1000);
  }
  fmt::format_to(out, "\nFramebuffers: {} held, {} at most, {} cached, {} created\n", framebuffers.held,
                 framebuffers.mostHeld, framebuffers.cached, framebuffers.created);
  if (lostTraceEvents > 0) fmt::format_to(out, "The trace misses {} events, which came too fast\n", lostTraceEvents);
  return text;
}

std::string TavrelGraphStatistics::json() const {
  const auto times = [](const Durations& durations) { return tavrel::json(durations); };
  const std::string dropList = jsonList(drops, [](const Drop& drop) {
    return fmt::format(R"({{"stage": {}, "reason": {}, "count": {}}})", jsonString(drop.stage), jsonString(drop.reason),
                       drop.count);
  });
  const std::string nodeList = jsonList(nodes, [&](const Node& node) {
    return fmt::format(R"({{"name": {}, "queue": {}, "gpu": {}}})", jsonString(node.name), times(node.queueTime),
                       hasGPUTimes ? times(node.gpuTime) : "null");
  });
  const std::string waitList = jsonList(waits, [&](const Wait& wait) {
    return fmt::format(R"({{"queue": {}, "time": {}}})", jsonString(wait.queue), times(wait.time));
  });
  const std::string lead =
      audioLead.count == 0
          ? "null"
          : fmt::format(R"({{"count": {}, "mean": {:.6f}, "least": {:.6f}, "most": {:.6f}, "last": {:.6f}}})",
                        audioLead.count, audioLead.mean, audioLead.least, audioLead.most, audioLead.last);
  return fmt::format(
      R"({{"seconds": {:.3f}, "framesIn": {}, "framesDelivered": {}, "framesShown": {}, "framesOut": {}, )"
      R"("soundsIn": {}, "soundsOut": {}, "drops": {}, "nodes": {}, "waits": {}, "latencyToDelegate": {}, )"
      R"("latencyToFile": {}, "audioLead": {}, )"
      R"("framebuffers": {{"held": {}, "mostHeld": {}, "cached": {}, "created": {}}}, "lostTraceEvents": {}}})",
      seconds, framesIn, framesDelivered, framesShown, framesOut, soundsIn, soundsOut, dropList, nodeList, waitList,
      times(latencyToDelegate), times(latencyToFile), lead, framebuffers.held, framebuffers.mostHeld,
      framebuffers.cached, framebuffers.created, lostTraceEvents);
}

}  // namespace tavrel
