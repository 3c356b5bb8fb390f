#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetTrack.h"

namespace tavrel {

/// A movie or sound file and what it says about itself, through libavformat. Immutable; any thread.
///
/// The time line of an asset begins at 0: edit lists are applied, and files whose time stamps begin later (streams) are
/// moved to 0.
class TAVREL_API Asset {
 public:
  /// Opens the file and looks at its tracks. Fails ("media") with "FILE is not a movie that can be read: REASON" when
  /// it is missing, of no known format or holds neither pictures nor sound that can be decoded.
  static Expected<std::shared_ptr<Asset>> create(const std::filesystem::path& path);

  virtual ~Asset() = default;

  const std::filesystem::path& path() const { return path_; }
  /// In the file's order; tracks that are neither pictures nor sound, cover pictures, and tracks in codings that cannot
  /// be decoded are left out.
  const std::vector<std::shared_ptr<const AssetTrack>>& tracks() const { return tracks_; }
  std::vector<std::shared_ptr<const AssetTrack>> tracksWithMediaType(MediaType mediaType) const;
  /// The end of the last track; zero when the file does not say.
  MediaTime duration() const { return duration_; }

 protected:
  Asset(std::filesystem::path path, std::vector<std::shared_ptr<const AssetTrack>> tracks, MediaTime duration);

 private:
  std::filesystem::path path_;
  std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  MediaTime duration_;
};

}  // namespace tavrel
