#pragma once

#include <pipewire/pipewire.h>
#include <spa/pod/pod.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNames.h"
#include "Platform/Capture/Private/CaptureControlPort.h"

namespace tavrel {

/// Takes properties of nodes to the loop on which their proxies live. Any thread.
class PipeWireControlLine {
 public:
  /// Sets them on the node `id`, on the loop's thread.
  using Set = void (*)(void* owner, std::uint32_t id, const spa_pod& properties);

  void open(pw_loop* loop, void* owner, Set set);
  /// Afterwards nothing is sent; what is on its way still arrives while the loop runs.
  void close();
  /// At most 256 bytes.
  void send(std::uint32_t node, const spa_pod& properties);

 private:
  std::mutex mutex_;
  pw_loop* loop_ = nullptr;
  void* owner_ = nullptr;
  Set set_ = nullptr;
};

/// The controls of a camera node by its properties: those of a kernel's video node, as PipeWire numbers them, or those
/// with the names that libcamera gives.
class PipeWireControls : public CaptureControlPort {
 public:
  PipeWireControls(std::uint32_t node, std::shared_ptr<PipeWireControlLine> line)
      : node_(node), line_(std::move(line)) {}

  /// What the node says of one property (SPA_PARAM_PropInfo), before this is used.
  void add(const spa_pod& information);
  bool isEmpty() const { return properties_.empty(); }

  CaptureCapabilities capabilities() const override;
  double largestZoom() const override;
  void apply(CaptureControl control, const CaptureControls& controls) override;

 private:
  enum class Role { focusAuto, focusStart, exposureAuto, zoom, lensMode, lensTrigger, exposureEnabled };
  struct Property {
    std::uint32_t id = 0;
    std::uint32_t type = 0;      // of the value
    std::vector<double> values;  // the ends of a range, or the alternatives
  };
  struct Known;
  static const std::array<Known, 7> kKnown;

  const Property* find(Role role) const;
  void set(Role role, double value);
  int automaticExposure() const;
  bool hasManualExposure() const;

  const std::uint32_t node_;
  const std::shared_ptr<PipeWireControlLine> line_;
  std::map<Role, Property> properties_;
  std::mutex mutex_;
  Point focusPoint_ = CaptureControls().focusPoint;
};

/// What a camera is set by: the video node behind it, opened by `openNode`, which knows more than the node's
/// properties, else those; nullptr where there is neither.
std::shared_ptr<CaptureControlPort> pipeWireControlsOf(
    const PipeWireProperties& properties, const std::shared_ptr<PipeWireControls>& controls,
    const std::function<std::unique_ptr<CaptureControlPort>(const std::string& path)>& openNode);

}  // namespace tavrel
