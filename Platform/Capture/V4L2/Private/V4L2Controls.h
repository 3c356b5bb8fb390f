#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "Platform/Capture/Private/CaptureControlPort.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"

namespace tavrel {

/// Carries out a camera's controls by its video node. One thread at a time.
class V4L2Controls {
 public:
  explicit V4L2Controls(const V4L2Capabilities& capabilities) : capabilities_(capabilities) {}

  /// On the console it says what the camera, called `name`, refuses.
  void apply(const V4L2Descriptor& node, CaptureControl control, const CaptureControls& controls,
             const std::string& name);

 private:
  bool set(const V4L2Descriptor& node, std::uint32_t identity, int value) const;
  bool setFocus(const V4L2Descriptor& node, const CaptureControls& controls);
  bool setExposure(const V4L2Descriptor& node, const CaptureControls& controls);
  bool setZoom(const V4L2Descriptor& node, double factor) const;
  bool setRegion(const V4L2Descriptor& node, Point middle, int use);

  const V4L2Capabilities& capabilities_;
  Point focusPoint_ = CaptureControls().focusPoint;
  Point exposurePoint_ = CaptureControls().exposurePoint;
  int regionUses_ = 0;
};

/// The controls of a video node whose pictures another program hands out, such as the PipeWire daemon.
class V4L2ControlPort : public CaptureControlPort {
 public:
  /// nullptr when the node cannot be opened, or is no camera.
  static std::unique_ptr<CaptureControlPort> open(const std::string& path,
                                                  V4L2SystemCalls calls = V4L2SystemCalls::real());
  V4L2ControlPort(const std::string& path, V4L2SystemCalls calls);

  CaptureCapabilities capabilities() const override { return capabilities_.controls(); }
  double largestZoom() const override { return capabilities_.largestZoom(); }
  void apply(CaptureControl control, const CaptureControls& controls) override;

 private:
  const V4L2SystemCalls calls_;
  const V4L2Descriptor node_;
  V4L2Capabilities capabilities_;
  std::mutex mutex_;
  V4L2Controls controls_{capabilities_};
};

}  // namespace tavrel
