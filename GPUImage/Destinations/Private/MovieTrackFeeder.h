#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "GPUImage/Private/SharedCallback.h"
#include "Platform/Media/AssetWriter.h"

namespace tavrel {

/// One track of a movie that is being written: waits for room in it or asks for its data, and ends it.
///
///     absent ──attach──▶ open ──pull──▶ pulling ⇄ paused ──the callback answers false──▶ finished
///                          └─────────────────────────finish─────────────────────────────────▲
///
/// Any thread, where nothing else is said.
class MovieTrackFeeder {
 public:
  /// Answers whether more data was handed to the writer.
  using InputReadyCallback = std::function<bool()>;

  /// `assetWriter` is the owner's, and may stay empty where there is no file.
  explicit MovieTrackFeeder(const std::shared_ptr<AssetWriter>& assetWriter) : assetWriter_(assetWriter) {}

  /// Adds the track to the file. Answers why the file refuses it, if it does.
  std::optional<Error> attach(std::shared_ptr<AssetWriterInput> input);
  /// nullptr while the movie has no such track.
  std::shared_ptr<AssetWriterInput> input() const { return input_.get(); }
  SharedCallback<InputReadyCallback>& inputReadyCallback() { return inputReadyCallback_; }
  const SharedCallback<InputReadyCallback>& inputReadyCallback() const { return inputReadyCallback_; }

  /// Waits, unless the recording is live, until the track has room, is finished or can never have room again, and looks
  /// anew after each `slice`. Returns whether it has room.
  bool waitUntilReady(const std::atomic<bool>& isLive, std::chrono::nanoseconds slice) const;
  /// Marks the track finished, once, while the file is being written. On the writer queue.
  void finish();
  /// From now on asks the callback for data on a queue of this name whenever the track has room, until it answers
  /// false. `owner` is kept alive during each question, and owns this feeder and `isPaused`.
  void pull(const char* queueLabel, std::weak_ptr<const void> owner, const std::atomic<bool>& isPaused,
            const std::shared_ptr<DispatchQueue>& writerQueue);

 private:
  bool isWriting() const;

  const std::shared_ptr<AssetWriter>& assetWriter_;
  SharedValue<std::shared_ptr<AssetWriterInput>> input_;
  SharedCallback<InputReadyCallback> inputReadyCallback_;
  std::atomic<bool> encodingIsFinished_ = false;
  std::shared_ptr<DispatchQueue> readingQueue_;
};

}  // namespace tavrel
