#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/DispatchTimer.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/Private/Writing/InputPipeline.h"
#include "Platform/Media/Private/Writing/MovieFile.h"

namespace tavrel {

/// What stands behind an `AssetWriter`: its status, and the end of the writing, which runs on a control queue. Any
/// thread.
class AssetWriterSession : public std::enable_shared_from_this<AssetWriterSession> {
 public:
  explicit AssetWriterSession(std::unique_ptr<MovieFile> file);

  AssetWriterStatus status() const;
  std::optional<Error> error() const;
  void setSettings(const std::function<void(MovieFile::Settings&)>& change);
  MovieFile::Settings settings() const;

  bool add(const std::shared_ptr<InputPipeline>& input);
  bool start();
  void startSession(MediaTime time);
  void finish(std::function<void()> completion);
  bool finishAndWait();
  void cancel();
  /// The writer goes: finishes what is being written.
  void close();
  MediaTime writtenUntil() const { return file_->writtenUntil(); }
  std::uint64_t writtenSamples(MediaType mediaType) const { return file_->writtenSamples(mediaType); }

 private:
  enum class Ending { finish, fail, cancel };

  bool refuse(Error error);
  void beginEnding(std::unique_lock<std::mutex>& lock, Ending ending, std::optional<Error> error);
  void end(Ending ending);
  void fail(Error error);
  void tick();
  void balanceInputs();
  /// There is room for packets again.
  void checkReadiness();
  void waitUntilEnded();

  const std::shared_ptr<MovieFile> file_;
  const std::shared_ptr<DispatchQueue> control_;

  mutable std::mutex mutex_;
  std::condition_variable ended_;
  AssetWriterStatus status_ = AssetWriterStatus::unknown;
  std::optional<Error> error_;
  bool isEnding_ = false;
  bool hasEnded_ = false;
  bool hasSession_ = false;
  MovieFile::Settings settings_;
  std::vector<std::shared_ptr<InputPipeline>> inputs_;
  std::shared_ptr<PacketQueue> packets_;  // while writing
  std::unique_ptr<DispatchTimer> timer_;
};

}  // namespace tavrel
