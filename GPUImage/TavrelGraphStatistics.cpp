#include "GPUImage/TavrelGraphStatistics.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

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

using JSON = nlohmann::ordered_json;

double microseconds(double seconds) { return std::round(seconds * 1e6) / 1e6; }

JSON json(const Statistics::Durations& times) {
  return {{"count", times.count},
          {"mean", microseconds(times.mean)},
          {"p50", microseconds(times.p50)},
          {"p99", microseconds(times.p99)},
          {"max", microseconds(times.max)}};
}

JSON json(const Statistics::AudioLead& lead) {
  if (lead.count == 0) return nullptr;
  return {{"count", lead.count},
          {"mean", microseconds(lead.mean)},
          {"least", microseconds(lead.least)},
          {"most", microseconds(lead.most)},
          {"last", microseconds(lead.last)}};
}

/// An array of what `write` makes of each item.
template <typename Items, typename Write>
JSON jsonList(const Items& items, Write write) {
  JSON list = JSON::array();
  for (const auto& item : items) list.push_back(write(item));
  return list;
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
  const JSON report = {
      {"seconds", std::round(seconds * 1e3) / 1e3},
      {"framesIn", framesIn},
      {"framesDelivered", framesDelivered},
      {"framesShown", framesShown},
      {"framesOut", framesOut},
      {"soundsIn", soundsIn},
      {"soundsOut", soundsOut},
      {"drops", jsonList(drops,
                         [](const Drop& drop) -> JSON {
                           return {{"stage", drop.stage}, {"reason", drop.reason}, {"count", drop.count}};
                         })},
      {"nodes", jsonList(nodes,
                         [this](const Node& node) -> JSON {
                           return {{"name", node.name},
                                   {"queue", tavrel::json(node.queueTime)},
                                   {"gpu", hasGPUTimes ? tavrel::json(node.gpuTime) : JSON(nullptr)}};
                         })},
      {"waits", jsonList(waits,
                         [](const Wait& wait) -> JSON {
                           return {{"queue", wait.queue}, {"time", tavrel::json(wait.time)}};
                         })},
      {"latencyToDelegate", tavrel::json(latencyToDelegate)},
      {"latencyToFile", tavrel::json(latencyToFile)},
      {"audioLead", tavrel::json(audioLead)},
      {"framebuffers",
       {{"held", framebuffers.held},
        {"mostHeld", framebuffers.mostHeld},
        {"cached", framebuffers.cached},
        {"created", framebuffers.created}}},
      {"lostTraceEvents", lostTraceEvents}};
  return report.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

}  // namespace tavrel
