#include "Panels/ThumbnailTextures.h"

#include <algorithm>

namespace tavrel::studio {

void ThumbnailTextures::draw(const std::filesystem::path& file, float side) {
  std::unique_ptr<WindowTexture>& texture = textures_[file];
  if (!texture) {
    if (const auto image = thumbnails_.of(file)) {
      texture = std::make_unique<WindowTexture>(static_cast<int>(image->width()), static_cast<int>(image->height()),
                                                image->dataProvider()->bytes().data());
    }
  }
  const ImVec2 corner = ImGui::GetCursorScreenPos();
  ImGui::Dummy(ImVec2(side, side));
  if (!texture) return;
  const auto width = static_cast<float>(texture->width());
  const auto height = static_cast<float>(texture->height());
  const float factor = side / std::max(width, height);
  const ImVec2 size(width * factor, height * factor);
  const ImVec2 place(corner.x + (side - size.x) / 2, corner.y + (side - size.y) / 2);
  ImGui::GetWindowDrawList()->AddImage(texture->identity(), place, ImVec2(place.x + size.x, place.y + size.y));
}

}  // namespace tavrel::studio
