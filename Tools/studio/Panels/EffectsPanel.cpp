#include "Panels/EffectsPanel.h"

#include <fmt/format.h>
#include <imgui.h>

#include "Model/Folders.h"
#include "Panels/Widgets.h"

namespace tavrel::studio {

void EffectsPanel::draw() {
  EffectList& effects = studio_.effects();
  if (button("Add beauty")) effects.add(makeBeauty());
  ImGui::SameLine();
  if (button("Add blur")) effects.add(makeBlur());
  if (button("Add a picture or a table ...")) {
    chooser_.open(FileChooser::Wanted::effect, studio_.settings().stills(),
                  [this](const auto& file) { studio_.addFile(file); });
  }
  if (effects.all().empty()) {
    return ImGui::TextWrapped(
        "No effects yet. Add one, or drop a picture, an animation or a table (.cube) onto the window.");
  }
  ImGui::TextDisabled("They act from top to bottom. B compares.");
  for (std::size_t i = 0; i < effects.all().size(); ++i) {
    ImGui::PushID(effects.all()[i].get());
    ImGui::Separator();
    const bool hasChanged = drawEffect(i);
    ImGui::PopID();
    if (hasChanged) break;  // the rest is drawn the next time
  }
}

bool EffectsPanel::drawEffect(std::size_t index) {
  EffectList& effects = studio_.effects();
  const std::shared_ptr<StudioEffect> effect = effects.all()[index];
  const std::string number = fmt::format("##{}", index + 1);
  bool isOn = effect->isOn();
  if (checkbox("on" + number, isOn)) {
    effects.setOn(index, isOn);
    return true;
  }
  hint("Switch it off and on");
  ImGui::SameLine();
  if (!effect->file().empty()) {
    thumbnails_.draw(effect->file(), ImGui::GetFontSize() * 2);
    ImGui::SameLine();
  }
  const float buttons = ImGui::GetFontSize() * 7;
  const ImVec2 title(std::max(1.0F, ImGui::GetContentRegionAvail().x - buttons), 0);
  if (ImGui::Selectable((effect->title() + number).c_str(), effect == studio_.selected(), 0, title)) {
    studio_.select(effect->place() ? effect : nullptr);
  }
  WidgetMap::shared().noteLast("title" + number);
  ImGui::SameLine();
  const bool goesUp = smallButton("Up" + number, "Let it act earlier");
  ImGui::SameLine();
  const bool goesDown = smallButton("Dn" + number, "Let it act later");
  ImGui::SameLine();
  const bool isRemoved = smallButton("x" + number, "Remove it");
  for (std::size_t i = 0; i < effect->levels().size(); ++i) {
    const auto& level = effect->levels()[i];
    double value = level.value;
    if (slider(level.name + number, value, level.least, level.most)) effect->setLevel(i, value);
  }
  if (goesUp && index > 0) effects.move(index, index - 1);
  if (goesDown) effects.move(index, index + 1);
  if (isRemoved) effects.remove(index);
  return goesUp || goesDown || isRemoved;
}

}  // namespace tavrel::studio
