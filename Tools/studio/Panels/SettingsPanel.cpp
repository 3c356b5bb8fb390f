#include "Panels/SettingsPanel.h"

#include <imgui.h>

#include <algorithm>

#include "Model/Folders.h"
#include "Panels/Widgets.h"

namespace tavrel::studio {
namespace {

constexpr std::pair<const char*, const char*> kCodecs[] = {
    {"H.264 (plays everywhere)", kVideoCodecH264},
    {"HEVC (smaller)", kVideoCodecHEVC},
    {"AV1 (smallest)", kVideoCodecAV1},
    {"VP9 (for the web)", kVideoCodecVP9},
};
constexpr const char* kContainers[] = {".mov", ".mp4", ".mkv", ".webm"};

constexpr std::pair<const char*, const char*> kKeys[] = {
    {"R", "start and stop a recording"},
    {"P", "pause it"},
    {"S", "take a still picture"},
    {"B", "hold: before the effects"},
    {"C", "next camera"},
    {"T", "torch"},
    {"Tab", "fold the panels away"},
    {"F11", "whole screen"},
    {"Delete", "remove the sticker"},
    {"Ctrl+Q", "quit"},
};

}  // namespace

void SettingsPanel::draw() {
  Settings& settings = studio_.settings();
  chooseCoding();
  slider("Quality", settings.quality, 0, 1);
  hint("Higher is better and larger");
  chooseFolder("Movies", settings.movieFolder, settings.movies());
  chooseFolder("Still pictures", settings.stillFolder, settings.stills());
  ImGui::Separator();
  // While it is dragged, the slider must stay where it is.
  static double zoom = settings.zoomOfPanels;
  slider("Text size", zoom, 0.75, 2.5);
  if (ImGui::IsItemDeactivatedAfterEdit()) settings.zoomOfPanels = zoom;
  ImGui::Separator();
  ImGui::TextDisabled("Keys");
  for (const auto& [key, action] : kKeys) {
    ImGui::TextUnformatted(key);
    ImGui::SameLine(ImGui::GetFontSize() * 5);
    ImGui::TextUnformatted(action);
  }
}

void SettingsPanel::chooseCoding() {
  Settings& settings = studio_.settings();
  if (codecs_.empty()) {
    const auto encoders = AssetWriter::videoEncoders();
    for (const auto& [name, codec] : kCodecs) {
      if (std::ranges::find(encoders, codec, &VideoEncoderInfo::codec) != encoders.end())
        codecs_.emplace_back(name, codec);
    }
  }
  std::vector<std::string> names;
  for (const auto& [name, codec] : codecs_) names.push_back(name);
  auto codec = static_cast<int>(
      std::ranges::find(codecs_, settings.codec, &std::pair<std::string, std::string>::second) - codecs_.begin());
  if (choice("Codec", names, codec, settings.codec)) {
    settings.codec = codecs_[static_cast<std::size_t>(codec)].second;
    // Of these two, one has only the other.
    if (settings.codec == kVideoCodecVP9) settings.container = ".webm";
    if (settings.codec != kVideoCodecVP9 && settings.container == ".webm") settings.container = ".mov";
  }
  const std::vector<std::string> containers(std::begin(kContainers), std::end(kContainers));
  auto container = static_cast<int>(std::ranges::find(containers, settings.container) - containers.begin());
  if (choice("File", containers, container, settings.container)) {
    settings.container = containers[static_cast<std::size_t>(container)];
    if (settings.container == ".webm" && settings.codec != kVideoCodecAV1) settings.codec = kVideoCodecVP9;
  }
}

void SettingsPanel::chooseFolder(const char* name, std::filesystem::path& folder, const std::filesystem::path& used) {
  std::string text = used.string();
  if (textField(name, text)) {
    if (text.empty() || std::filesystem::path(text).is_absolute()) {
      folder = text;
    } else {
      studio_.messages().fault("A folder is named from the root on, such as /home/me/Videos.");
    }
  }
  hint(used.c_str());
  if (smallButton(std::string("Choose##") + name, "Choose a folder")) {
    chooser_.open(FileChooser::Wanted::folder, used, [&folder](const auto& chosen) { folder = chosen; });
  }
}

}  // namespace tavrel::studio
