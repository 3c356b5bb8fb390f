#include "Panels/RecordBar.h"

#include <fmt/format.h>
#include <imgui.h>

#include "Model/Folders.h"
#include "Panels/Widgets.h"

namespace tavrel::studio {
namespace {

constexpr ImGuiWindowFlags kFixed = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoBackground |
                                    ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                                    ImGuiWindowFlags_NoBringToFrontOnFocus | ImGuiWindowFlags_NoNav;
const ImVec4 kRed(0.85F, 0.2F, 0.17F, 1);
const ImVec4 kLightRed(0.95F, 0.32F, 0.28F, 1);

ImVec2 sizeOf(const Rect& rect) { return {static_cast<float>(rect.size.width), static_cast<float>(rect.size.height)}; }

}  // namespace

void RecordBar::draw(const Layout& layout) {
  ImGui::SetNextWindowPos(pixels(layout.bar.origin));
  ImGui::SetNextWindowSize(sizeOf(layout.bar));
  ImGui::Begin("##bar", nullptr, kFixed);
  drawButtons();
  drawMeter();
  drawMessage();
  ImGui::End();
}

void RecordBar::drawMessageAlone(const Layout& layout) {
  if (!studio_.messages().current(steadySeconds())) return;
  const float line = ImGui::GetFontSize() * 2;
  ImGui::SetNextWindowPos(ImVec2(0, ImGui::GetIO().DisplaySize.y - line));
  ImGui::SetNextWindowSize(ImVec2(static_cast<float>(layout.bar.size.width), line));
  ImGui::Begin("##message", nullptr, kFixed & ~ImGuiWindowFlags_NoBackground);
  drawMessage();
  ImGui::End();
}

void RecordBar::drawButtons() {
  const bool isRecording = studio_.isRecording();
  const bool canRecord = studio_.recorder() != nullptr;
  if (isRecording) {
    ImGui::PushStyleColor(ImGuiCol_Button, kRed);
    ImGui::PushStyleColor(ImGuiCol_ButtonHovered, kLightRed);
  }
  if (button(isRecording ? "Stop" : "Record", "R", canRecord)) studio_.toggleRecording();
  if (isRecording) ImGui::PopStyleColor(2);
  ImGui::SameLine();
  if (button(studio_.isPaused() ? "Resume" : "Pause", "P", isRecording)) studio_.togglePause();
  ImGui::SameLine();
  if (button("Still picture", "S", canRecord)) studio_.takeStill();
  ImGui::SameLine();
  if (studio_.isRecording()) {
    const ImVec2 place = ImGui::GetCursorScreenPos();
    const float size = ImGui::GetFontSize();
    // It blinks while it is paused.
    const bool isLit = !studio_.isPaused() || static_cast<long>(steadySeconds() * 2) % 2 == 0;
    ImGui::Dummy(ImVec2(size, ImGui::GetFrameHeight()));
    if (isLit) {
      ImGui::GetWindowDrawList()->AddCircleFilled(ImVec2(place.x + size / 2, place.y + ImGui::GetFrameHeight() / 2),
                                                  size * 0.42F, ImGui::GetColorU32(kRed));
    }
    ImGui::SameLine();
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(clockText(studio_.meter().seconds(steadySeconds())).c_str());
    ImGui::SameLine();
  }
  if (ImGui::GetContentRegionAvail().x > ImGui::GetFontSize() * 6) {
    ImGui::SameLine(ImGui::GetWindowWidth() - ImGui::GetFontSize() * 6);
    if (button("Fold away", "")) studio_.settings().showsPanels = false;
    hint("Tab folds the panels away and brings them back");
  } else {
    ImGui::NewLine();
  }
}

void RecordBar::drawMeter() const {
  const RecordingMeter& meter = studio_.meter();
  std::string text;
  if (studio_.isRecording()) text = sizeText(static_cast<double>(meter.fileSize())) + ",  ";
  if (const auto minutes = meter.minutesLeft()) text += fmt::format("room for {:.0f} minutes", *minutes);
  if (studio_.isRecording()) {
    const std::string losses = lossText(studio_.recorder()->statistics());
    text += ",  " + (losses.empty() ? "no frames lost" : losses);
  }
  ImGui::TextWrapped("%s", text.c_str());
}

void RecordBar::drawMessage() {
  const Message* const message = studio_.messages().current(steadySeconds());
  if (!message) {
    const auto& file = studio_.latestFile();
    if (file.empty()) return;
    if (smallButton("Show in folder", shortName(file).c_str()) && !openWithDesktop(file.parent_path())) {
      studio_.messages().fault(fmt::format("There is no file manager to open {}.", shortName(file.parent_path())));
    }
    ImGui::SameLine();
    ImGui::TextDisabled("%s", shortName(file).c_str());
    return;
  }
  const Message shown = *message;
  if (smallButton("OK", "Put this line away")) studio_.messages().dismiss();
  ImGui::SameLine();
  if (!shown.file.empty()) {
    if (smallButton("Show in folder", shortName(shown.file).c_str()) && !openWithDesktop(shown.file.parent_path())) {
      studio_.messages().fault(
          fmt::format("There is no file manager to open {}.", shortName(shown.file.parent_path())));
    }
    ImGui::SameLine();
  }
  const bool isFault = shown.kind == Message::Kind::fault;
  if (isFault) ImGui::PushStyleColor(ImGuiCol_Text, ImVec4(1, 0.65F, 0.45F, 1));
  ImGui::TextWrapped("%s", shown.text.c_str());
  if (isFault) ImGui::PopStyleColor();
}

}  // namespace tavrel::studio
