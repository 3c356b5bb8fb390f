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

/// Where media leaves a session. An output belongs to one session at a time. Any thread.
class TAVREL_API CaptureOutput {
 public:
  CaptureOutput(const CaptureOutput&) = delete;
  CaptureOutput& operator=(const CaptureOutput&) = delete;
  virtual ~CaptureOutput();

  MediaType mediaType() const { return mediaType_; }
  /// nullptr if the output does not take the media type, belongs to no session, or its session has no input of that
  /// type. The same object, with its settings, is returned once there is an input again.
  std::shared_ptr<CaptureConnection> connectionWithMediaType(MediaType mediaType) const;

 protected:
  explicit CaptureOutput(MediaType mediaType) : mediaType_(mediaType) {}
  /// Whether the session is running.
  bool isRunning() const { return isRunning_; }

 private:
  friend class CaptureSessionCore;
  friend class CaptureSource;

  /// Takes a video frame or an audio buffer, on the device's capture thread. On a clock that is not real-time it may
  /// block until there is room or `source` is cancelled.
  virtual void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) = 0;
  /// The device lost a sample; same thread.
  virtual void deliverDrop(const SampleTiming& timing) = 0;
  /// No more samples for now: the session stopped or lost its input, or the output was removed.
  virtual void deliveryEnded() {}

  const MediaType mediaType_;
  std::atomic<bool> isRunning_ = false;
  mutable std::mutex connectionMutex_;
  std::shared_ptr<CaptureConnection> connection_;
};

}  // namespace tavrel
