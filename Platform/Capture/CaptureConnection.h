#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Capture/CaptureDeviceModes.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// The level of one audio channel of a connection. Any thread.
class TAVREL_API CaptureAudioChannel {
 public:
  /// The level of silence.
  static constexpr float kSilence = -120;

  /// Root mean square of the latest buffer in dBFS: 0 for a full-scale square wave, -3 for a full-scale sine.
  float averagePowerLevel() const { return averagePowerLevel_; }
  /// Peak of the latest buffer in dBFS.
  float peakHoldLevel() const { return peakHoldLevel_; }

  /// Called by the session.
  void setLevels(float average, float peak);

 private:
  std::atomic<float> averagePowerLevel_ = kSilence;
  std::atomic<float> peakHoldLevel_ = kSilence;
};

/// Connects the input of one media type to an output of the same session. It belongs to the output and stays the same
/// object while inputs come and go. Any thread.
class TAVREL_API CaptureConnection {
 public:
  explicit CaptureConnection(MediaType mediaType);

  MediaType mediaType() const { return mediaType_; }
  /// True while the session has an input of the media type, running or not.
  bool isActive() const { return isActive_; }

  /// True for video: every orientation is supported.
  bool isVideoOrientationSupported() const { return mediaType_ == MediaType::video; }
  /// Rotates frames from the next one on; the portrait orientations swap width and height. Initially `landscapeRight`.
  /// The setter has no effect on an audio connection.
  CaptureVideoOrientation videoOrientation() const { return videoOrientation_; }
  void setVideoOrientation(CaptureVideoOrientation orientation);

  bool isVideoMirroringSupported() const { return mediaType_ == MediaType::video; }
  /// True by default, which means no mirroring: frames of still-image and data outputs are never mirrored
  /// automatically, not even a front camera's. Turn it off before `setVideoMirrored`.
  bool automaticallyAdjustsVideoMirroring() const { return automaticallyAdjustsVideoMirroring_; }
  void setAutomaticallyAdjustsVideoMirroring(bool adjusts);
  /// Mirrors frames left to right, after rotation. False by default; the setter has no effect while mirroring is
  /// automatic.
  bool isVideoMirrored() const { return isVideoMirrored_; }
  void setVideoMirrored(bool mirrored);

  /// One for each channel; empty for video and until the first audio buffer.
  std::vector<std::shared_ptr<CaptureAudioChannel>> audioChannels() const;

  /// Called by the session.
  void setActive(bool active) { isActive_ = active; }
  /// Called by the session.
  void setAudioChannelCount(std::size_t count);

 private:
  const MediaType mediaType_;
  std::atomic<bool> isActive_ = false;
  std::atomic<CaptureVideoOrientation> videoOrientation_ = CaptureVideoOrientation::landscapeRight;
  std::atomic<bool> automaticallyAdjustsVideoMirroring_ = true;
  std::atomic<bool> isVideoMirrored_ = false;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<CaptureAudioChannel>> audioChannels_;
};

}  // namespace tavrel
