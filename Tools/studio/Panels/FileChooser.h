#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Panels/ThumbnailTextures.h"

namespace tavrel::studio {

/// Asks for a picture, an animation or a table, with thumbnails; or for a folder.
class FileChooser {
 public:
  enum class Wanted { effect, folder };

  explicit FileChooser(ThumbnailTextures& thumbnails) : thumbnails_(thumbnails) {}

  void open(Wanted wanted, const std::filesystem::path& folder);
  /// Draws it while it is open; returns what was chosen, once.
  std::optional<std::filesystem::path> draw();
  bool isOpen() const { return isOpen_; }

 private:
  void enter(const std::filesystem::path& folder);
  std::optional<std::filesystem::path> drawList();

  ThumbnailTextures& thumbnails_;
  Wanted wanted_ = Wanted::effect;
  bool isOpen_ = false;
  std::filesystem::path folder_;
  std::string path_;  // as it is typed
  std::string fault_;
  std::vector<std::filesystem::path> folders_;
  std::vector<std::filesystem::path> files_;
};

}  // namespace tavrel::studio
