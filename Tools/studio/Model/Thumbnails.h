#pragma once

#include <filesystem>
#include <map>
#include <memory>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// Small pictures of picture and table files, made by another thread: of a table, what it makes of a colour chart. Main
/// thread.
class Thumbnails {
 public:
  static constexpr double kSide = 96;  ///< pixels of the longer side, at most

  Thumbnails() = default;
  Thumbnails(const Thumbnails&) = delete;
  Thumbnails& operator=(const Thumbnails&) = delete;

  /// nullptr while it is not made yet, and of what has none.
  std::shared_ptr<Image> of(const std::filesystem::path& file);

 private:
  std::map<std::filesystem::path, std::shared_ptr<Image>> images_;
  const std::shared_ptr<Thumbnails*> alive_ = std::make_shared<Thumbnails*>(this);
};

/// Whether a file's name is one of a picture, an animation or a lookup table.
bool isPictureName(const std::filesystem::path& file);
bool isTableName(const std::filesystem::path& file);

}  // namespace tavrel::studio
