#include "Panels/PicturePanel.h"

#include <fmt/format.h>
#include <imgui.h>

#include <algorithm>
#include <cmath>

#include "Panels/Widgets.h"

namespace tavrel::studio {
namespace {

constexpr ImU32 kLine = IM_COL32(255, 255, 255, 230);
constexpr ImU32 kShade = IM_COL32(0, 0, 0, 150);
constexpr ImU32 kRed = IM_COL32(235, 60, 50, 255);
constexpr double kRingSeconds = 0.5;

Point mousePoint() { return {ImGui::GetIO().MousePos.x, ImGui::GetIO().MousePos.y}; }

}  // namespace

void PicturePanel::draw(const Layout& layout) {
  ImGui::SetNextWindowPos(pixels(layout.picture.origin));
  ImGui::SetNextWindowSize(
      ImVec2(static_cast<float>(layout.picture.size.width), static_cast<float>(layout.picture.size.height)));
  ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(0, 0));
  ImGui::Begin("##picture", nullptr,
               ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoBackground | ImGuiWindowFlags_NoMove |
                   ImGuiWindowFlags_NoBringToFrontOnFocus | ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoNav);
  ImGui::InvisibleButton("picture", ImGui::GetContentRegionAvail());
  WidgetMap::shared().noteLast("picture");
  handleMouse(layout, ImGui::IsItemHovered() || ImGui::IsItemActive());
  drawSticker(layout);
  drawRing();
  if (!studio_.settings().showsPanels) drawMark(layout);
  if (studio_.before().isOn()) {
    ImGui::GetWindowDrawList()->AddText(ImVec2(static_cast<float>(layout.picture.origin.x) + ImGui::GetFontSize(),
                                               static_cast<float>(layout.picture.origin.y) + ImGui::GetFontSize()),
                                        kLine, "Before the effects");
  }
  ImGui::End();
  ImGui::PopStyleVar();
}

void PicturePanel::handleMouse(const Layout& layout, bool isOver) {
  const Size frame = studio_.effects().frameSize();
  const Point mouse = mousePoint();
  const Point place = layout.toFrame(mouse, frame, studio_.settings().mirrors);
  const double reach = ImGui::GetFontSize() * 0.6 * frame.width / layout.picture.size.width;
  if (isOver && ImGui::IsMouseClicked(ImGuiMouseButton_Left)) press(place, reach, mouse);
  if (drag_ && studio_.selected()) {
    const StickerPlace moved = dragged(drag_->start, drag_->grip, drag_->from, place, ImGui::GetIO().KeyShift);
    if (moved != *studio_.selected()->place()) studio_.selected()->setPlace(moved);
  }
  if (!ImGui::IsMouseDown(ImGuiMouseButton_Left)) drag_.reset();
  const float wheel = ImGui::GetIO().MouseWheel;
  if (isOver && wheel != 0 && studio_.recorder()) {
    const auto& camera = studio_.recorder()->camera();
    const double zoom = camera->preferredVideoZoomFactor() * std::pow(1.1, wheel);
    camera->setPreferredVideoZoomFactor(std::clamp(zoom, 1.0, std::max(1.0, camera->videoMaxZoomFactor())));
  }
}

void PicturePanel::press(Point place, double reach, Point mouse) {
  // The selected one first: its handles may lie over another sticker. Then the one in front.
  auto candidates = studio_.effects().placedEffects();
  std::ranges::reverse(candidates);
  if (studio_.selected()) candidates.insert(candidates.begin(), studio_.selected());
  for (const auto& sticker : candidates) {
    const bool isSelected = sticker == studio_.selected();
    const StickerGrip grip = gripAt(*sticker->place(), place, isSelected ? reach : 0);
    if (grip == StickerGrip::none) continue;
    studio_.select(sticker);
    drag_ = Drag{grip, *sticker->place(), place};
    return;
  }
  studio_.select(nullptr);
  ring_ = Ring{mouse, steadySeconds()};
  focus(place);
}

void PicturePanel::focus(Point place) {
  if (!studio_.recorder()) return;
  const Size frame = studio_.effects().frameSize();
  const auto& camera = studio_.recorder()->camera();
  const Point point = camera->covertPreviewPointToFocusPoint({place.x / frame.width, place.y / frame.height});
  camera->setPreferredFocusPointOfInterest(point);
  camera->setPreferredExposurePointOfInterest(point);
}

void PicturePanel::drawSticker(const Layout& layout) const {
  const auto& sticker = studio_.selected();
  if (!sticker || !sticker->isOn()) return;
  const Size frame = studio_.effects().frameSize();
  const bool mirrors = studio_.settings().mirrors;
  const auto at = [&](double across, double down) {
    return pixels(layout.toWindow(sticker->place()->pointAt(across, down), frame, mirrors));
  };
  ImDrawList& list = *ImGui::GetWindowDrawList();
  const ImVec2 corners[] = {at(-1, -1), at(1, -1), at(1, 1), at(-1, 1)};
  const float dot = ImGui::GetFontSize() * 0.35F;
  list.AddPolyline(corners, 4, kLine, ImDrawFlags_Closed, 1.5F);
  // The handle is so many reaches above the upper edge, in pixels of the frame.
  const double reach = ImGui::GetFontSize() * 0.6 * frame.width / layout.picture.size.width;
  const double half = sticker->place()->rectangle.size.height / 2;
  const ImVec2 handle = at(0, -(half + kTurningHandle * reach) / half);
  list.AddLine(at(0, -1), handle, kLine, 1.5F);
  list.AddCircleFilled(handle, dot, kLine);
  WidgetMap::shared().note("turning handle", {{handle.x, handle.y}, {0, 0}});
  for (const ImVec2& corner : corners) {
    list.AddRectFilled(ImVec2(corner.x - dot, corner.y - dot), ImVec2(corner.x + dot, corner.y + dot), kLine);
  }
}

void PicturePanel::drawRing() const {
  if (!ring_) return;
  const double age = (steadySeconds() - ring_->since) / kRingSeconds;
  if (age > 1) return;
  const double size = ImGui::GetFontSize() * (1.6 + 1.2 * (1 - std::min(1.0, age * 2)));
  const auto opacity = static_cast<int>(255 * std::min(1.0, 2 - 2 * age));
  ImGui::GetWindowDrawList()->AddCircle(pixels(ring_->mouse), static_cast<float>(size),
                                        IM_COL32(255, 255, 255, opacity), 48, 2);
}

void PicturePanel::drawMark(const Layout& layout) const {
  if (!studio_.isRecording()) return;
  const std::string text =
      fmt::format("{}{}", clockText(studio_.meter().seconds(steadySeconds())), studio_.isPaused() ? "  paused" : "");
  const float size = ImGui::GetFontSize();
  const ImVec2 corner(static_cast<float>(layout.picture.origin.x) + size,
                      static_cast<float>(layout.picture.origin.y) + size);
  ImDrawList& list = *ImGui::GetWindowDrawList();
  const ImVec2 extent = ImGui::CalcTextSize(text.c_str());
  list.AddRectFilled(corner, ImVec2(corner.x + extent.x + size * 2.2F, corner.y + size * 1.6F), kShade, size * 0.4F);
  list.AddCircleFilled(ImVec2(corner.x + size * 0.9F, corner.y + size * 0.8F), size * 0.4F, kRed);
  list.AddText(ImVec2(corner.x + size * 1.6F, corner.y + size * 0.3F), kLine, text.c_str());
}

}  // namespace tavrel::studio
