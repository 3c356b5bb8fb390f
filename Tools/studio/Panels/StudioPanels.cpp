#include "Panels/StudioPanels.h"

#include <imgui.h>

#include <functional>
#include <map>

#include "Panels/Widgets.h"

namespace tavrel::studio {

void StudioPanels::draw(const Layout& layout) {
  WidgetMap::shared().clear();
  picture_.draw(layout);
  if (studio_.settings().showsPanels) {
    drawSide(layout);
    bar_.draw(layout);
  } else {
    studio_.measurement().setOn(false);
    bar_.drawMessageAlone(layout);
  }
  chooser_.draw();
}

void StudioPanels::drawSide(const Layout& layout) {
  ImGui::SetNextWindowPos(pixels(layout.side.origin));
  ImGui::SetNextWindowSize(
      ImVec2(static_cast<float>(layout.side.size.width), static_cast<float>(layout.side.size.height)));
  ImGui::Begin("##side", nullptr,
               ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoBackground | ImGuiWindowFlags_NoMove |
                   ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoBringToFrontOnFocus | ImGuiWindowFlags_NoNav);
  const std::pair<const char*, std::function<void()>> pages[] = {{"Camera", [this] { camera_.draw(); }},
                                                                 {"Effects", [this] { effects_.draw(); }},
                                                                 {"Settings", [this] { settings_.draw(); }},
                                                                 {"Statistics", [this] { statistics_.draw(); }}};
  bool showsStatistics = false;
  if (ImGui::BeginTabBar("pages")) {
    for (const auto& [name, drawPage] : pages) {
      const bool isOpen = ImGui::BeginTabItem(name);
      WidgetMap::shared().noteLast(std::string("page/") + name);
      if (!isOpen) continue;
      showsStatistics = showsStatistics || std::string_view(name) == "Statistics";
      // A page may be longer than the window.
      ImGui::BeginChild(name);
      drawPage();
      ImGui::EndChild();
      ImGui::EndTabItem();
    }
    ImGui::EndTabBar();
  }
  if (!showsStatistics) studio_.measurement().setOn(false);
  ImGui::End();
}

bool StudioPanels::press(const std::string& key) {
  const std::map<std::string, std::function<void()>> actions = {
      {"R", [this] { studio_.toggleRecording(); }},
      {"P", [this] { studio_.togglePause(); }},
      {"S", [this] { studio_.takeStill(); }},
      {"C", [this] { studio_.nextCamera(); }},
      {"T", [this] { studio_.toggleTorch(); }},
      {"B", [this] { studio_.before().setOn(true); }},
      {"Tab", [this] { studio_.settings().showsPanels = !studio_.settings().showsPanels; }},
      {"Delete", [this] { studio_.removeSelected(); }},
      {"Escape", [this] { studio_.select(nullptr); }},
  };
  const auto action = actions.find(key);
  if (action == actions.end()) return false;
  action->second();
  return true;
}

void StudioPanels::release(const std::string& key) {
  if (key == "B") studio_.before().setOn(false);
}

}  // namespace tavrel::studio
