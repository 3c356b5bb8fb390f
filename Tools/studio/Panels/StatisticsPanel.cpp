#include "Panels/StatisticsPanel.h"

#include <fmt/format.h>
#include <imgui.h>

#include <algorithm>
#include <numeric>

#include "Model/Folders.h"
#include "Panels/Widgets.h"

namespace tavrel::studio {
namespace {

ImU32 colourOf(std::size_t index) {
  constexpr float kGoldenSection = 0.618034F;
  const float hue = static_cast<float>(index) * kGoldenSection;
  return ImColor::HSV(hue - static_cast<float>(static_cast<int>(hue)), 0.55F, 0.85F);
}

/// The library's class of a node, without what all have in common.
std::string shortNodeName(const std::string& name) {
  for (const std::string prefix : {"TavrelGPUImage", "Tavrel"}) {
    if (name.starts_with(prefix)) return name.substr(prefix.size());
  }
  return name;
}

double totalOf(const Measurement::Sample& sample) { return std::accumulate(sample.begin(), sample.end(), 0.0); }

}  // namespace

void StatisticsPanel::draw() {
  studio_.measurement().setOn(true);
  drawTrace();  // above all that grows, so that it stays where it is
  ImGui::TextDisabled("Milliseconds a frame on the graphics queue");
  drawGraph();
  drawLegend();
  ImGui::Separator();
  drawTotals();
}

void StatisticsPanel::drawGraph() const {
  const auto& samples = studio_.measurement().samples();
  const ImVec2 corner = ImGui::GetCursorScreenPos();
  const ImVec2 size(ImGui::GetContentRegionAvail().x, ImGui::GetFontSize() * 8);
  ImGui::Dummy(size);
  WidgetMap::shared().noteLast("graph");
  ImDrawList& list = *ImGui::GetWindowDrawList();
  list.AddRectFilled(corner, ImVec2(corner.x + size.x, corner.y + size.y), IM_COL32(0, 0, 0, 110));
  double most = 1;
  for (const auto& sample : samples) most = std::max(most, totalOf(sample));
  const float column = size.x / static_cast<float>(Measurement::kMostSamples);
  float x = corner.x + size.x - column * static_cast<float>(samples.size());
  for (const auto& sample : samples) {
    float y = corner.y + size.y;
    for (std::size_t i = 0; i < sample.size(); ++i) {
      const auto height = static_cast<float>(sample[i] / most) * size.y;
      list.AddRectFilled(ImVec2(x, y - height), ImVec2(x + column, y), colourOf(i));
      y -= height;
    }
    x += column;
  }
  list.AddText(ImVec2(corner.x + 4, corner.y + 2), IM_COL32(255, 255, 255, 200),
               fmt::format("{:.1f} ms", most).c_str());
}

void StatisticsPanel::drawLegend() const {
  const Measurement& measurement = studio_.measurement();
  if (measurement.samples().empty()) return ImGui::TextDisabled("Waiting for frames ...");
  const Measurement::Sample& latest = measurement.samples().back();
  for (std::size_t i = 0; i < latest.size(); ++i) {
    constexpr double kWorthALine = 0.005;
    if (latest[i] < kWorthALine) continue;
    ImGui::ColorButton(measurement.names()[i].c_str(), ImColor(colourOf(i)), ImGuiColorEditFlags_NoTooltip,
                       ImVec2(ImGui::GetFontSize() * 0.8F, ImGui::GetFontSize() * 0.8F));
    ImGui::SameLine();
    ImGui::TextUnformatted(fmt::format("{:6.2f}  {}", latest[i], shortNodeName(measurement.names()[i])).c_str());
  }
}

void StatisticsPanel::drawTotals() const {
  const TavrelGraphStatistics& all = studio_.measurement().latest();
  const auto line = [](const std::string& text) { ImGui::TextWrapped("%s", text.c_str()); };
  if (all.seconds > 0) {
    line(fmt::format("{:.1f} frames a second", static_cast<double>(all.framesDelivered) / all.seconds));
  }
  const auto latency = [&](const char* name, const TavrelGraphStatistics::Durations& time) {
    if (time.count == 0) return;
    line(fmt::format("{}: {:.1f} ms; 99 of 100 frames within {:.1f} ms", name, time.mean * 1000, time.p99 * 1000));
  };
  latency("From the camera through the effects", all.latencyToDelegate);
  latency("From the camera to the encoder", all.latencyToFile);
  if (all.drops.empty()) line("No frame was dropped.");
  for (const auto& drop : all.drops) line(fmt::format("{} dropped, {}: {}", drop.count, drop.stage, drop.reason));
}

void StatisticsPanel::drawTrace() {
  Measurement& measurement = studio_.measurement();
  if (!measurement.isTracing() && button("Record a trace")) {
    measurement.startTrace(newFile(studio_.settings().movies(), ".json", std::time(nullptr)));
  } else if (measurement.isTracing() && button("Stop and open the trace")) {
    measurement.stopTrace();
  }
  hint("Every single event, for ui.perfetto.dev");
}

}  // namespace tavrel::studio
