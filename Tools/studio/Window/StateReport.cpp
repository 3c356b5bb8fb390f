#include "Window/StateReport.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "Panels/Widgets.h"
#include "Platform/Foundation/Environment.h"

namespace tavrel::studio {
namespace {

nlohmann::json jsonOf(const Rect& rect) { return {rect.origin.x, rect.origin.y, rect.size.width, rect.size.height}; }

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

StateReport::StateReport() {
  if (const auto file = environmentVariable("TAVREL_STUDIO_STATE")) file_ = *file;
}

void StateReport::notePanels(double drawn, double seconds) {
  constexpr std::size_t kMost = 200;
  drawnBefore_ = drawn;
  ++drawings_;
  if (!isOn()) return;
  panelTimes_.push_back(seconds);
  if (panelTimes_.size() > kMost) panelTimes_.pop_front();
}

void StateReport::write(Studio& studio, const Layout& layout, const Rect& window) {
  if (!isOn()) return;
  nlohmann::json state;
  for (const auto& [name, place] : WidgetMap::shared().places()) state["widgets"][name] = jsonOf(place);
  state["window"] = jsonOf(window);
  state["picture"] = jsonOf(layout.picture);
  state["frame"] = {studio.effects().frameSize().width, studio.effects().frameSize().height};
  state["recording"] = studio.isRecording();
  state["paused"] = studio.isPaused();
  state["before"] = studio.before().isOn();
  state["file"] = studio.latestFile().string();
  state["camera"] = studio.recorder() ? studio.recorder()->camera()->deviceID() : "";
  state["effects"] = studio.effects().json()["list"];
  state["selected"] = studio.selected() ? studio.selected()->file().string() : "";
  const Message* const message = studio.messages().current(steadySeconds());
  state["message"] = message ? message->text : "";
  state["isFault"] = message && message->kind == Message::Kind::fault;
  const std::string now = state.dump();
  if (now == written_ && drawings_ % 16 != 0) return;
  written_ = now;
  // What changes by itself is no reason to write.
  state["drawings"] = drawings_;
  state["processed"] = studio.recorder() ? studio.recorder()->camera()->statistics().processed : 0;
  state["written"] = studio.recorder() ? studio.recorder()->statistics().framesWritten : 0;
  state["panelMilliseconds"] = median({panelTimes_.begin(), panelTimes_.end()}) * 1000;
  const std::filesystem::path fresh = file_.string() + ".new";
  std::ofstream(fresh) << state.dump(1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::error_code ignored;
  std::filesystem::rename(fresh, file_, ignored);
}

}  // namespace tavrel::studio
