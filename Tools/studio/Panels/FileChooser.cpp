#include "Panels/FileChooser.h"

#include <fmt/format.h>
#include <imgui.h>

#include <algorithm>
#include <utility>

#include "Model/Folders.h"
#include "Panels/Widgets.h"

namespace tavrel::studio {

void FileChooser::open(Wanted wanted, const std::filesystem::path& folder, Answer answer) {
  answer_ = std::move(answer);
  wanted_ = wanted;
  isOpen_ = true;
  auto present = folder;
  std::error_code ignored;
  while (!std::filesystem::is_directory(present, ignored) && present.has_relative_path()) {
    present = present.parent_path();
  }
  enter(present);
}

void FileChooser::enter(const std::filesystem::path& folder) {
  folders_.clear();
  files_.clear();
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const auto& path = entry.path();
    if (path.filename().string().starts_with(".")) continue;
    std::error_code ignored;
    if (entry.is_directory(ignored)) {
      folders_.push_back(path);
    } else if (wanted_ == Wanted::effect && (isPictureName(path) || isTableName(path))) {
      files_.push_back(path);
    }
  }
  std::ranges::sort(folders_);
  std::ranges::sort(files_);
  fault_ = error ? fmt::format("{} cannot be read: {}", shortName(folder), error.message()) : "";
  folder_ = folder;
  path_ = folder.string();
}

void FileChooser::draw() {
  if (!isOpen_) return;
  const ImVec2 window = ImGui::GetIO().DisplaySize;
  ImGui::SetNextWindowPos(ImVec2(window.x * 0.1F, window.y * 0.1F));
  ImGui::SetNextWindowSize(ImVec2(window.x * 0.8F, window.y * 0.8F));
  const char* const title = wanted_ == Wanted::effect ? "Choose a picture, an animation or a table" : "Choose a folder";
  std::optional<std::filesystem::path> chosen;
  if (ImGui::Begin(title, &isOpen_,
                   ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoCollapse |
                       ImGuiWindowFlags_NoSavedSettings)) {
    if (textField("Path", path_)) {
      std::error_code ignored;
      const bool isFolder = std::filesystem::is_directory(path_, ignored);
      if (isFolder) {
        enter(path_);
      } else if (wanted_ == Wanted::effect) {
        chosen = path_;
      }
    }
    if (!fault_.empty()) ImGui::TextWrapped("%s", fault_.c_str());
    if (wanted_ == Wanted::folder && button("Take this folder")) chosen = folder_;
    ImGui::BeginChild("files");
    if (auto file = drawList()) chosen = std::move(file);
    ImGui::EndChild();
  }
  ImGui::End();
  if (chosen || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape))) isOpen_ = false;
  if (chosen) answer_(*chosen);
}

std::optional<std::filesystem::path> FileChooser::drawList() {
  std::optional<std::filesystem::path> next;
  if (folder_.has_relative_path() && ImGui::Selectable("..")) next = folder_.parent_path();
  for (const auto& each : folders_) {
    if (ImGui::Selectable((each.filename().string() + "/").c_str())) next = each;
  }
  const float side = ImGui::GetFontSize() * 2.5F;
  std::optional<std::filesystem::path> chosen;
  for (const auto& each : files_) {
    // Only what is seen gets a thumbnail.
    const std::string name = each.filename().string();
    if (ImGui::Selectable(("##" + name).c_str(), false, 0, ImVec2(0, side))) chosen = each;
    const bool isSeen = ImGui::IsItemVisible();
    WidgetMap::shared().noteLast("file/" + name);
    if (!isSeen) continue;
    ImGui::SameLine();
    thumbnails_.draw(each, side);
    ImGui::SameLine();
    ImGui::TextUnformatted(name.c_str());
  }
  if (next) enter(*next);
  return chosen;
}

}  // namespace tavrel::studio
