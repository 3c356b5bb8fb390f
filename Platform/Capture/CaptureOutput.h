#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "Platform/Capture/CaptureConnection.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

class CaptureSource;
class SampleBuffer;
struct SampleTiming;

/// Where a session's media leaves it. An output serves one session at a time. Any thread.
class TAVREL_API CaptureOutput {
 public:
  CaptureOutput(const CaptureOutput&) = delete;
  CaptureOutput& operator=(const CaptureOutput&) = delete;
  virtual ~CaptureOutput();

  MediaType mediaType() const { return mediaType_; }
  /// nullptr while the output belongs to no session or its session has no input of the media type, and for a media type
  /// that the output does not take. The same object comes back, with its settings, when the session has an input again.
  std::shared_ptr<CaptureConnection> connectionWithMediaType(MediaType mediaType) const;

 protected:
  explicit CaptureOutput(MediaType mediaType) : mediaType_(mediaType) {}
  /// Whether its session runs.
  bool isRunning() const { return isRunning_; }

 private:
  friend class CaptureSessionCore;
  friend class CaptureSource;

  /// Takes a picture or a run of sound, on the device's capture thread. On a clock that waits for its devices it may
  /// block until there is room, and until `source` is cancelled.
  virtual void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) = 0;
  /// The device lost a sample before the session saw it; same thread.
  virtual void deliverDrop(const SampleTiming& timing) = 0;
  /// The session stopped, lost its input, or the output left it: nothing more will come for now.
  virtual void deliveryEnded() {}

  const MediaType mediaType_;
  std::atomic<bool> isRunning_ = false;
  mutable std::mutex connectionMutex_;
  std::shared_ptr<CaptureConnection> connection_;
};

}  // namespace tavrel
