#pragma once

#include <filesystem>
#include <functional>
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

  using Answer = std::function<void(const std::filesystem::path& chosen)>;

  /// Begins in `folder`; `answer` is called once something is chosen.
  void open(Wanted wanted, const std::filesystem::path& folder, Answer answer);
  /// Draws it while it is open.
  void draw();

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
  Answer answer_;
};

}  // namespace tavrel::studio
