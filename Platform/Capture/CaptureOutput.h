#pragma once

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
  /// nullptr while the output belongs to no session, and for a media type that it does not take. A connection exists as
  /// long as the output is in a session; `isActive` says whether anything can arrive.
  std::shared_ptr<CaptureConnection> connectionWithMediaType(MediaType mediaType) const;

 protected:
  explicit CaptureOutput(MediaType mediaType) : mediaType_(mediaType) {}

 private:
  friend class CaptureSessionCore;

  /// Takes a picture or a run of sound, on the device's capture thread. On a clock that waits for its devices it may
  /// block until there is room, and until `source` is cancelled.
  virtual void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) = 0;
  /// The device lost a sample before the session saw it; same thread.
  virtual void deliverDrop(const SampleTiming& timing) = 0;
  /// The session stopped, lost its input, or the output left it: nothing more will come for now.
  virtual void deliveryEnded() {}

  const MediaType mediaType_;
  mutable std::mutex connectionMutex_;
  std::shared_ptr<CaptureConnection> connection_;
};

}  // namespace tavrel
