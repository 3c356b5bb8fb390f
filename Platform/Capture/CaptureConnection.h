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

/// One channel of the sound that passes a connection. Any thread.
class TAVREL_API CaptureAudioChannel {
 public:
  /// What silence reads.
  static constexpr float kSilence = -120;

  /// The root mean square of the latest buffer, in decibels of full scale: 0 for a full square wave, -3 for a full
  /// sine.
  float averagePowerLevel() const { return averagePowerLevel_; }
  /// The greatest sample of the latest buffer, likewise.
  float peakHoldLevel() const { return peakHoldLevel_; }

  /// Set by the session.
  void setLevels(float average, float peak);

 private:
  std::atomic<float> averagePowerLevel_ = kSilence;
  std::atomic<float> peakHoldLevel_ = kSilence;
};

/// The way of one media type from a session's input to one of its outputs. It belongs to the output, appears when its
/// session has both, and stays the same object while inputs come and go. Any thread.
class TAVREL_API CaptureConnection {
 public:
  explicit CaptureConnection(MediaType mediaType);

  MediaType mediaType() const { return mediaType_; }
  /// True while its session has an input of the media type, running or not.
  bool isActive() const { return isActive_; }

  /// Cameras' connections: every orientation.
  bool isVideoOrientationSupported() const { return mediaType_ == MediaType::video; }
  /// `landscapeRight` at first. The next picture that arrives is turned like this, and its width and height are
  /// exchanged for the portrait ones; on a connection without pictures the setter does nothing.
  CaptureVideoOrientation videoOrientation() const { return videoOrientation_; }
  void setVideoOrientation(CaptureVideoOrientation orientation);

  bool isVideoMirroringSupported() const { return mediaType_ == MediaType::video; }
  /// On at first: pictures of a front camera leave still-image and data outputs as they are, so nothing is mirrored by
  /// itself. Must be off for `setVideoMirrored`.
  bool automaticallyAdjustsVideoMirroring() const { return automaticallyAdjustsVideoMirroring_; }
  void setAutomaticallyAdjustsVideoMirroring(bool adjusts);
  /// Exchanges left and right of what arrives, after turning it. Off at first; ignored while mirroring is automatic.
  bool isVideoMirrored() const { return isVideoMirrored_; }
  void setVideoMirrored(bool mirrored);

  /// One for each channel that arrives; empty for pictures, and until the first buffer of sound.
  std::vector<std::shared_ptr<CaptureAudioChannel>> audioChannels() const;

  /// Set by the session.
  void setActive(bool active) { isActive_ = active; }
  /// Makes as many channels as that; called by the session.
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
