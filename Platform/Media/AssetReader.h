#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"

namespace tavrel {

enum class AssetReaderStatus { unknown = 0, reading = 1, completed = 2, failed = 3, cancelled = 4 };

/// Reads the samples of an asset's tracks, once and from the start unless its outputs support random access.
///
///     unknown ──startReading──▶ reading ──every output at its end──▶ completed
///                  │               ├──an output cannot go on───────▶ failed
///                  └──▶ failed     └──cancelReading────────────────▶ cancelled
///
/// A truncated or damaged file is read as far as it decodes; frames that do not decode are skipped. Each output has its
/// own reading position, so that nothing accumulates for an output that is not read. Any thread.
class TAVREL_API AssetReader : public std::enable_shared_from_this<AssetReader> {
 public:
  /// Fails (`MediaErrorCode::invalidArgument`) if `asset` is nullptr.
  static Expected<std::shared_ptr<AssetReader>> create(std::shared_ptr<const Asset> asset);

  const std::shared_ptr<const Asset>& asset() const { return asset_; }
  std::vector<std::shared_ptr<AssetReaderOutput>> outputs() const;

  /// Adds an output before reading starts. Later, or with an output of another reader, it stops the program.
  void addOutput(std::shared_ptr<AssetReaderOutput> output);
  /// What of the asset is read, by default everything: pictures that begin in the range, the sound in it and stored
  /// packets that are played in it. Set before reading starts.
  void setTimeRange(const MediaTimeRange& range);
  MediaTimeRange timeRange() const;
  /// Opens the outputs. False, with status failed and an error, if there is none, one cannot be opened, or reading has
  /// started before.
  bool startReading();
  /// Stops reading; a read in progress on another thread returns soon. Has no effect unless reading.
  void cancelReading();

  AssetReaderStatus status() const;
  /// Set if the status is failed.
  std::optional<Error> error() const;

 private:
  friend class AssetReaderOutput;

  explicit AssetReader(std::shared_ptr<const Asset> asset);
  void outputEnded();
  void fail(Error error);
  /// The one place where the status changes once reading has started; the caller holds the lock.
  void changeStatus(AssetReaderStatus status, std::optional<Error> error);

  std::shared_ptr<const Asset> asset_;
  mutable std::mutex mutex_;
  MediaTimeRange timeRange_ = MediaTimeRange::everything();
  std::vector<std::shared_ptr<AssetReaderOutput>> outputs_;
  std::size_t endedOutputs_ = 0;
  AssetReaderStatus status_ = AssetReaderStatus::unknown;
  std::optional<Error> error_;
};

}  // namespace tavrel
