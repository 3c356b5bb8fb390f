#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetTrack.h"
#include "Platform/Media/MetadataItem.h"

namespace tavrel {

/// How a file is examined.
struct AssetOptions {
  /// Reads the whole file for what the container does not state: how long tracks are, and which begin late.
  bool prefersPreciseDurationAndTiming = false;
};

/// A movie or audio file and its tracks, through libavformat. Any thread.
///
///     unknown ──load──▶ loading ──▶ loaded
///                          └──────▶ failed
///
/// An asset's time line begins at 0: edit lists are applied, and files whose timestamps begin later (streams) are
/// shifted. A loaded asset is immutable unless it is a `MutableComposition`.
class TAVREL_API Asset : public std::enable_shared_from_this<Asset> {
 public:
  enum class ValueStatus { unknown, loading, loaded, failed };

  /// Opens the file and loads its tracks. Fails with "FILE is not a movie that can be read: REASON" if it is missing
  /// (`MediaErrorCode::unreadableFile`), of no known format (`unknownFileFormat`), damaged (`damagedFile`), or has no
  /// decodable video or audio track (`noPlayableTrack`).
  static Expected<std::shared_ptr<Asset>> create(const std::filesystem::path& path, AssetOptions options = {});
  /// An asset that is not loaded yet. `tracks` and `duration` load it on the calling thread if necessary.
  static std::shared_ptr<Asset> createUnloaded(const std::filesystem::path& path, AssetOptions options = {});

  Asset(const Asset&) = delete;
  Asset& operator=(const Asset&) = delete;
  virtual ~Asset() = default;

  /// Loads `tracks` and `duration` on the global queue, then calls `completion` there, even if they were loaded already
  /// or loading failed.
  void loadTracksAsynchronously(std::function<void()> completion);
  ValueStatus statusOfTracks() const;
  /// Why loading failed; see `create`.
  std::optional<Error> error() const;

  /// Empty for a composition.
  const std::filesystem::path& path() const { return path_; }
  /// The decodable video and audio tracks in the file's order, without cover art. Empty if the file cannot be read.
  virtual std::vector<std::shared_ptr<const AssetTrack>> tracks() const;
  /// Subtitle tracks, which are not among `tracks`, are included; they can only be read as stored.
  std::vector<std::shared_ptr<const AssetTrack>> tracksWithMediaType(MediaType mediaType) const;
  /// What the file says about itself, such as title and place, by the keys of MetadataItem.h where it has one of these;
  /// empty for a composition.
  std::vector<MetadataItem> metadata() const;
  /// In their order; empty for a composition.
  std::vector<Chapter> chapters() const;
  /// The file's cover, if it has one.
  std::optional<Artwork> artwork() const;
  /// What else is in the file, in words such as "an attachment"; empty for a composition.
  std::vector<std::string> contentBesideTracks() const;
  /// The end of the last track; zero if unknown.
  virtual MediaTime duration() const;

 protected:
  Asset(std::filesystem::path path, AssetOptions options, ValueStatus status)
      : path_(std::move(path)), options_(options), status_(status) {}

 private:
  void load() const;
  Expected<void> readFile() const;

  const std::filesystem::path path_;
  const AssetOptions options_;

  mutable std::mutex mutex_;
  mutable ValueStatus status_;
  mutable std::optional<Error> error_;
  mutable std::vector<std::shared_ptr<const AssetTrack>> tracks_;
  mutable std::vector<std::shared_ptr<const AssetTrack>> subtitles_;
  mutable std::vector<MetadataItem> metadata_;
  mutable std::vector<Chapter> chapters_;
  mutable std::optional<Artwork> artwork_;
  mutable std::vector<std::string> contentBesideTracks_;
  mutable MediaTime duration_ = MediaTime::zero();
};

}  // namespace tavrel
