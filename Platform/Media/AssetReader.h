#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReaderOutput.h"

namespace tavrel {

enum class AssetReaderStatus { unknown = 0, reading = 1, completed = 2, failed = 3, cancelled = 4 };

/// Reads the samples of an asset's tracks: once, from the start, unless its outputs support random access.
///
///     unknown ──startReading──▶ reading ──every output at its end──▶ completed
///                  │               ├──an output cannot go on───────▶ failed
///                  └──▶ failed     └──cancelReading────────────────▶ cancelled
///
/// A file that is cut off or damaged is read as far as it decodes: frames that do not decode are left out. Memory stays
/// bounded: each output has its own reading position, so nothing piles up for an output that is not read. Any thread.
class TAVREL_API AssetReader : public std::enable_shared_from_this<AssetReader> {
 public:
  /// Fails (`MediaErrorCode::invalidArgument`) without an asset.
  static Expected<std::shared_ptr<AssetReader>> create(std::shared_ptr<const Asset> asset);

  const std::shared_ptr<const Asset>& asset() const { return asset_; }
  std::vector<std::shared_ptr<AssetReaderOutput>> outputs() const;

  /// Adds an output, before reading starts. One that serves a reader already, or comes too late, stops the program.
  void addOutput(std::shared_ptr<AssetReaderOutput> output);
  /// Opens every output. False, with status failed and an error, when one cannot be opened, when there is none, or when
  /// reading has started before.
  bool startReading();
  /// Ends the reading; a read that runs on another thread soon returns. No effect unless reading.
  void cancelReading();

  AssetReaderStatus status() const;
  /// Why the status is failed.
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
  std::vector<std::shared_ptr<AssetReaderOutput>> outputs_;
  std::size_t endedOutputs_ = 0;
  AssetReaderStatus status_ = AssetReaderStatus::unknown;
  std::optional<Error> error_;
};

}  // namespace tavrel
