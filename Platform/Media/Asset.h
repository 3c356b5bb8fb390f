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

namespace tavrel {

/// How a file is looked at.
struct AssetOptions {
  /// Where the container does not say how long its tracks are, all of the file is read to find out.
  bool prefersPreciseDurationAndTiming = false;
};

/// A movie or sound file and what it says about itself, through libavformat. Any thread.
///
///     unknown ──load──▶ loading ──▶ loaded
///                          └──────▶ failed
///
/// The time line of an asset begins at 0: edit lists are applied, and files whose time stamps begin later (streams) are
/// moved to 0. What was loaded does not change any more, except in a `MutableComposition`.
class TAVREL_API Asset : public std::enable_shared_from_this<Asset> {
 public:
  enum class ValueStatus { unknown, loading, loaded, failed };

  /// Opens the file and looks at its tracks. Fails with "FILE is not a movie that can be read: REASON" when it is
  /// missing (`MediaErrorCode::unreadableFile`), of no known format (`unknownFileFormat`) or damaged (`damagedFile`),
  /// and when it holds neither pictures nor sound that can be decoded (`noPlayableTrack`).
  static Expected<std::shared_ptr<Asset>> create(const std::filesystem::path& path, AssetOptions options = {});
  /// An asset whose file is not looked at yet. `tracks` and `duration` load it on the calling thread if nobody did.
  static std::shared_ptr<Asset> createUnloaded(const std::filesystem::path& path, AssetOptions options = {});

  Asset(const Asset&) = delete;
  Asset& operator=(const Asset&) = delete;
  virtual ~Asset() = default;

  /// Loads what `tracks` and `duration` answer on the global queue, then calls `completion` there, also when there was
  /// nothing left to load or the loading failed.
  void loadTracksAsynchronously(std::function<void()> completion);
  ValueStatus statusOfTracks() const;
  /// Why the loading failed, as `create` says it.
  std::optional<Error> error() const;

  /// Empty for a composition.
  const std::filesystem::path& path() const { return path_; }
  /// In the file's order; tracks that are neither pictures nor sound, cover pictures, and tracks in codings that cannot
  /// be decoded are left out. Empty when the file cannot be read.
  virtual std::vector<std::shared_ptr<const AssetTrack>> tracks() const;
  std::vector<std::shared_ptr<const AssetTrack>> tracksWithMediaType(MediaType mediaType) const;
  /// The end of the last track; zero when the file does not say.
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
  mutable MediaTime duration_ = MediaTime::zero();
};

}  // namespace tavrel
