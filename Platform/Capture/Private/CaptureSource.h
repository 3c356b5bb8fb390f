#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/PictureTurner.h"

namespace tavrel {

class CaptureSessionCore;

/// One opening of a device in a session: leads what the driver captures to the outputs. Once cancelled nothing passes.
class CaptureSource : public CaptureSink, public std::enable_shared_from_this<CaptureSource> {
 public:
  CaptureSource(std::shared_ptr<CaptureDevice> device, std::shared_ptr<CaptureDriver> driver,
                std::weak_ptr<CaptureSessionCore> session);

  const std::shared_ptr<CaptureDevice>& device() const { return device_; }
  const std::shared_ptr<CaptureDriver>& driver() const { return driver_; }
  std::shared_ptr<const CaptureDeviceFormat> format;  // for the session

  void setOutputs(std::vector<std::shared_ptr<CaptureOutput>> outputs);
  /// Lets go of whoever waits in an output.
  void cancel() { stop_.request_stop(); }
  std::stop_token cancellation() const { return stop_.get_token(); }
  bool isRealTime() const { return driver_->isRealTime(); }
  /// The time since the latest sample, or since the opening.
  std::chrono::nanoseconds silence() const;

  /// The picture as the connection wants it, for outputs, on the capture thread. nullptr when no memory is left.
  std::shared_ptr<SampleBuffer> turned(const std::shared_ptr<SampleBuffer>& sample,
                                       const CaptureConnection& connection);

  void didCapture(std::shared_ptr<SampleBuffer> sample) override;
  void didDrop(const SampleTiming& timing) override;
  void didFail(Error error) override;

 private:
  std::vector<std::shared_ptr<CaptureOutput>> outputs() const;

  const std::shared_ptr<CaptureDevice> device_;
  const std::shared_ptr<CaptureDriver> driver_;
  const std::weak_ptr<CaptureSessionCore> session_;
  std::stop_source stop_;
  PictureTurner turner_;
  std::atomic<std::chrono::steady_clock::time_point> lastSample_;
  std::atomic<bool> hasDelivered_ = false;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<CaptureOutput>> outputs_;
};

}  // namespace tavrel
