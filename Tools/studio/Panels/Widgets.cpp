#include "Panels/Widgets.h"

#include <algorithm>
#include <cstring>

namespace tavrel::studio {
namespace {

std::string visiblePart(const std::string& name) { return name.substr(0, name.find("##")); }

}  // namespace

WidgetMap& WidgetMap::shared() {
  static WidgetMap map;
  return map;
}

void WidgetMap::noteLast(const std::string& name) {
  if (!ImGui::IsItemVisible()) return;
  const ImVec2 least = ImGui::GetItemRectMin();
  const ImVec2 most = ImGui::GetItemRectMax();
  note(name, {{least.x, least.y}, {most.x - least.x, most.y - least.y}});
}

bool button(const std::string& name, const char* key, bool isEnabled) {
  std::string label = visiblePart(name);
  if (*key != '\0') label += std::string("  ") + key;
  ImGui::BeginDisabled(!isEnabled);
  const bool isPressed = ImGui::Button((label + "##" + name).c_str());
  ImGui::EndDisabled();
  WidgetMap::shared().noteLast(name);
  return isPressed;
}

bool smallButton(const std::string& name, const char* text) {
  const bool isPressed = ImGui::SmallButton(name.c_str());
  WidgetMap::shared().noteLast(name);
  hint(text);
  return isPressed;
}

bool checkbox(const std::string& name, bool& value) {
  const bool isChanged = ImGui::Checkbox(name.c_str(), &value);
  WidgetMap::shared().noteLast(name);
  return isChanged;
}

bool slider(const std::string& name, double& value, double least, double most, const char* format) {
  ImGui::SetNextItemWidth(-ImGui::GetFontSize() * 6.5F);
  const bool isChanged = ImGui::SliderScalar(name.c_str(), ImGuiDataType_Double, &value, &least, &most, format,
                                             ImGuiSliderFlags_AlwaysClamp);
  // The place of the track alone, without the label to its right.
  const ImVec2 corner = ImGui::GetItemRectMin();
  const double width = ImGui::GetContentRegionAvail().x;
  if (ImGui::IsItemVisible()) {
    const ImVec2 end = ImGui::GetItemRectMax();
    const double label = ImGui::CalcTextSize(visiblePart(name).c_str()).x + ImGui::GetStyle().ItemInnerSpacing.x;
    WidgetMap::shared().note(
        name,
        {{corner.x, corner.y}, {std::max(1.0, std::min<double>(end.x - corner.x, width) - label), end.y - corner.y}});
  }
  return isChanged;
}

bool textField(const std::string& name, std::string& value) {
  char text[1024] = {};
  value.copy(text, sizeof(text) - 1);
  ImGui::SetNextItemWidth(-ImGui::GetFontSize() * 6.5F);
  if (ImGui::InputText(name.c_str(), text, sizeof(text))) value = text;
  WidgetMap::shared().noteLast(name);
  return ImGui::IsItemDeactivatedAfterEdit();
}

bool choice(const std::string& name, const std::vector<std::string>& entries, int& index, const std::string& shown) {
  const bool isListed = index >= 0 && index < static_cast<int>(entries.size());
  ImGui::SetNextItemWidth(-ImGui::GetFontSize() * 6.5F);
  const bool isUnfolded =
      ImGui::BeginCombo(name.c_str(), isListed ? entries[static_cast<std::size_t>(index)].c_str() : shown.c_str());
  WidgetMap::shared().noteLast(name);
  if (!isUnfolded) return false;
  bool isChanged = false;
  for (int i = 0; i < static_cast<int>(entries.size()); ++i) {
    ImGui::PushID(i);
    if (ImGui::Selectable(entries[static_cast<std::size_t>(i)].c_str(), i == index) && i != index) {
      index = i;
      isChanged = true;
    }
    WidgetMap::shared().noteLast(name + "/" + entries[static_cast<std::size_t>(i)]);
    ImGui::PopID();
  }
  ImGui::EndCombo();
  return isChanged;
}

void hint(const char* text) {
  if (ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled)) ImGui::SetTooltip("%s", text);
}

ImVec2 pixels(Point point) { return {static_cast<float>(point.x), static_cast<float>(point.y)}; }

}  // namespace tavrel::studio
