#pragma once

#include <imgui.h>

#include <filesystem>
#include <map>
#include <memory>

#include "Model/Thumbnails.h"
#include "Window/PanelRenderer.h"

namespace tavrel::studio {

/// Thumbnails as textures. Main thread, with the window's context current.
class ThumbnailTextures {
 public:
  /// Draws the thumbnail in a square of `side` pixels, which stays empty without one.
  void draw(const std::filesystem::path& file, float side);

 private:
  Thumbnails thumbnails_;
  std::map<std::filesystem::path, std::unique_ptr<WindowTexture>> textures_;
};

}  // namespace tavrel::studio
