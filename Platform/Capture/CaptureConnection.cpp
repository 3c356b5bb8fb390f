#include "Platform/Capture/CaptureConnection.h"

namespace tavrel {

void CaptureAudioChannel::setLevels(float average, float peak) {
  averagePowerLevel_ = average;
  peakHoldLevel_ = peak;
}

CaptureConnection::CaptureConnection(MediaType mediaType) : mediaType_(mediaType) {}

void CaptureConnection::setVideoOrientation(CaptureVideoOrientation orientation) {
  if (isVideoOrientationSupported()) videoOrientation_ = orientation;
}

void CaptureConnection::setAutomaticallyAdjustsVideoMirroring(bool adjusts) {
  automaticallyAdjustsVideoMirroring_ = adjusts;
}

void CaptureConnection::setVideoMirrored(bool mirrored) {
  if (isVideoMirroringSupported() && !automaticallyAdjustsVideoMirroring_) isVideoMirrored_ = mirrored;
}

std::vector<std::shared_ptr<CaptureAudioChannel>> CaptureConnection::audioChannels() const {
  const std::lock_guard lock(mutex_);
  return audioChannels_;
}

void CaptureConnection::setAudioChannelCount(std::size_t count) {
  const std::lock_guard lock(mutex_);
  audioChannels_.resize(count);
  for (auto& channel : audioChannels_) {
    if (!channel) channel = std::make_shared<CaptureAudioChannel>();
  }
}

}  // namespace tavrel
