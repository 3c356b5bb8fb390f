#include <utility>

#include "Platform/Capture/Private/CaptureSessionCore.h"
#include "Platform/Capture/Private/CaptureSource.h"

namespace tavrel {
namespace {

int degreesOf(CaptureVideoOrientation orientation) {
  switch (orientation) {
    case CaptureVideoOrientation::portrait: return 90;
    case CaptureVideoOrientation::landscapeLeft: return 180;
    case CaptureVideoOrientation::portraitUpsideDown: return 270;
    case CaptureVideoOrientation::landscapeRight: break;
  }
  return 0;
}

}  // namespace

CaptureSource::CaptureSource(std::shared_ptr<CaptureDevice> device, std::shared_ptr<CaptureDriver> driver,
                             std::weak_ptr<CaptureSessionCore> session)
    : device_(std::move(device)),
      driver_(std::move(driver)),
      session_(std::move(session)),
      lastSample_(std::chrono::steady_clock::now()) {}

void CaptureSource::setOutputs(std::vector<std::shared_ptr<CaptureOutput>> outputs) {
  const std::lock_guard lock(mutex_);
  outputs_ = std::move(outputs);
}

std::vector<std::shared_ptr<CaptureOutput>> CaptureSource::outputs() const {
  const std::lock_guard lock(mutex_);
  return outputs_;
}

std::chrono::nanoseconds CaptureSource::silence() const {
  return std::chrono::steady_clock::now() - lastSample_.load();
}

std::shared_ptr<SampleBuffer> CaptureSource::turned(const std::shared_ptr<SampleBuffer>& sample,
                                                    const CaptureConnection& connection) {
  const int degrees = degreesOf(connection.videoOrientation()) + driver_->description().mountRotation;
  const bool mirrored = connection.isVideoMirrored() && !connection.automaticallyAdjustsVideoMirroring();
  return turner_.turned(sample, degrees % 360, mirrored);
}

void CaptureSource::didCapture(std::shared_ptr<SampleBuffer> sample) {
  if (stop_.stop_requested()) return;
  lastSample_ = std::chrono::steady_clock::now();
  if (!hasDelivered_.exchange(true)) {
    if (const auto session = session_.lock()) session->sourceDelivers(shared_from_this());
  }
  for (const auto& output : outputs()) output->deliver(sample, *this);
}

void CaptureSource::didDrop(const SampleTiming& timing) {
  if (stop_.stop_requested()) return;
  for (const auto& output : outputs()) output->deliverDrop(timing);
}

void CaptureSource::didFail(Error error) {
  if (stop_.stop_requested()) return;
  if (const auto session = session_.lock()) session->sourceFailed(shared_from_this(), std::move(error));
}

}  // namespace tavrel
