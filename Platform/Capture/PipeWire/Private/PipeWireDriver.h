#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/Capture/PipeWire/Private/PipeWireDefaults.h"
#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireHandles.h"
#include "Platform/Capture/Private/CaptureControlPort.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/DeliveryRecord.h"

namespace tavrel {

/// One node of PipeWire's graph as camera or microphone. While open it has a connection and a thread of its own
/// ("tavrel.pwcam", "tavrel.pwmic"), on which pictures are converted.
class PipeWireDriver : public CaptureDriver {
 public:
  struct Node {
    std::string name;
    std::string serial;  ///< PipeWire's number of the node, never used twice
    bool isMonitor = false;
    std::vector<PipeWireMode> modes;
    std::shared_ptr<PipeWireGate> gate;            ///< that it is reached through, if any
    std::shared_ptr<CaptureControlPort> controls;  ///< of the camera, if any
  };

  PipeWireDriver(CaptureDeviceDescription description, Node node, std::shared_ptr<const PipeWireDefaults> defaults);
  ~PipeWireDriver() override;

  const CaptureDeviceDescription& description() const override { return description_; }
  bool isSystemDefault() const override { return !node_.isMonitor && defaults_->isSource(node_.name); }
  std::shared_ptr<const CaptureDeviceFormat> formatOfSize(CaptureVideoDimensions dimensions) override;
  Expected<void> open(CaptureRun run) override;
  void close() override;
  void setFrameRate(double framesPerSecond) override;
  CaptureCapabilities capabilities() const override {
    return node_.controls ? node_.controls->capabilities() : CaptureCapabilities();
  }
  void apply(CaptureControl control, const CaptureControls& controls) override {
    if (node_.controls) node_.controls->apply(control, controls);
  }
  std::optional<CaptureDelivery> delivery() const override { return delivery_.get(); }

 private:
  class Stream;

  const CaptureDeviceDescription description_;
  const Node node_;
  const std::shared_ptr<const PipeWireDefaults> defaults_;
  DeliveryRecord delivery_;
  std::mutex operation_;
  std::unique_ptr<Stream> stream_;
};

}  // namespace tavrel
