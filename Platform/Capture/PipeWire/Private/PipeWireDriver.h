#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireHandles.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/DeliveryRecord.h"
#include "Platform/Graphics/PixelBufferPool.h"

namespace tavrel {

/// The name of the system's default microphone, shared between the backend and its drivers.
class PipeWireDefaults {
 public:
  void setSource(std::string name);
  bool isSource(const std::string& name) const;

 private:
  mutable std::mutex mutex_;
  std::string source_;
};

/// One node of PipeWire's graph as camera or microphone. While open it has a connection and a thread of its own
/// ("tavrel.pwcam", "tavrel.pwmic"), on which pictures are converted.
class PipeWireDriver : public CaptureDriver {
 public:
  struct Node {
    std::string name;
    std::string serial;  ///< PipeWire's number of the node, never used twice
    bool isMonitor = false;
    std::vector<PipeWireMode> modes;
    std::shared_ptr<PipeWireGate> gate;  ///< that it is reached through, if any
  };

  PipeWireDriver(CaptureDeviceDescription description, Node node, std::shared_ptr<const PipeWireDefaults> defaults);
  ~PipeWireDriver() override;

  const CaptureDeviceDescription& description() const override { return description_; }
  bool isSystemDefault() const override { return !node_.isMonitor && defaults_->isSource(node_.name); }
  Expected<void> open(CaptureRun run) override;
  void close() override;
  void setFrameRate(double framesPerSecond) override;
  void apply(CaptureControl, const CaptureControls&) override {}
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
