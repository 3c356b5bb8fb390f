#include "Panels/Style.h"

#include <imgui.h>

#include <cmath>
#include <filesystem>

namespace tavrel::studio {
namespace {

constexpr double kFontSize = 15;

/// Where distributions keep a font for user interfaces, with more than Latin letters; the first that is there.
constexpr const char* kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/dejavu-sans-fonts/DejaVuSans.ttf",
    "/usr/share/fonts/TTF/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/noto/NotoSans-Regular.ttf",
    "/usr/share/fonts/noto/NotoSans-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf",
};

/// Latin with its accents, Greek, Cyrillic, punctuation, arrows.
constexpr ImWchar kLetters[] = {0x20, 0x24F, 0x370, 0x52F, 0x2010, 0x2044, 0x2190, 0x21FF, 0};

void loadFont(ImFontAtlas& atlas, double scale) {
  atlas.Clear();
  const auto size = static_cast<float>(std::round(kFontSize * scale));
  for (const char* file : kFonts) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) continue;
    if (atlas.AddFontFromFileTTF(file, size, nullptr, kLetters)) return;
  }
  ImFontConfig builtIn;
  builtIn.SizePixels = size;
  atlas.AddFontDefault(&builtIn);
}

void setColours(ImGuiStyle& style) {
  ImGui::StyleColorsDark(&style);
  const auto set = [&](ImGuiCol which, float r, float g, float b, float a = 1) {
    style.Colors[which] = ImVec4(r, g, b, a);
  };
  set(ImGuiCol_WindowBg, 0.11F, 0.115F, 0.13F);
  set(ImGuiCol_Button, 0.22F, 0.24F, 0.29F);
  set(ImGuiCol_ButtonHovered, 0.29F, 0.33F, 0.42F);
  set(ImGuiCol_ButtonActive, 0.24F, 0.42F, 0.66F);
  set(ImGuiCol_FrameBg, 0.18F, 0.19F, 0.225F);
  set(ImGuiCol_FrameBgHovered, 0.23F, 0.25F, 0.3F);
  set(ImGuiCol_Header, 0.2F, 0.33F, 0.5F);
  set(ImGuiCol_Tab, 0.15F, 0.16F, 0.19F);
  set(ImGuiCol_TabActive, 0.22F, 0.36F, 0.55F);
  set(ImGuiCol_SliderGrab, 0.36F, 0.58F, 0.86F);
  set(ImGuiCol_CheckMark, 0.45F, 0.7F, 1.0F);
}

}  // namespace

std::unique_ptr<WindowTexture> applyStyle(double scale) {
  ImGuiStyle style;
  setColours(style);
  style.WindowRounding = 0;
  style.WindowBorderSize = 0;
  style.FrameRounding = 4;
  style.GrabRounding = 4;
  style.FramePadding = ImVec2(7, 4);
  style.ItemSpacing = ImVec2(8, 6);
  style.AntiAliasedLinesUseTex = false;
  style.ScaleAllSizes(static_cast<float>(scale));
  ImGui::GetStyle() = style;

  ImFontAtlas& atlas = *ImGui::GetIO().Fonts;
  loadFont(atlas, scale);
  unsigned char* pixels = nullptr;
  int width = 0;
  int height = 0;
  atlas.GetTexDataAsRGBA32(&pixels, &width, &height);
  auto texture = std::make_unique<WindowTexture>(width, height, pixels);
  atlas.SetTexID(texture->identity());
  atlas.ClearTexData();
  return texture;
}

}  // namespace tavrel::studio
