#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Capture/PipeWire/Private/PipeWireGate.h"
#include "Platform/Capture/Private/CaptureBackend.h"
#include "Platform/Capture/Private/CaptureControlPort.h"

namespace tavrel {

/// Cameras and microphones of the PipeWire daemon that the environment names (`PIPEWIRE_REMOTE`, `XDG_RUNTIME_DIR`):
/// its nodes of class Video/Source with the role Camera and Audio/Source, and the monitors of Audio/Sink. Thread:
/// "tavrel.pipewire". When there is no daemon, or it ends, a new one is looked for every two seconds.
///
/// Identity: "pipewire:" and the node's name, which the session manager makes from the place that the device is plugged
/// into or its serial number; a monitor's ends in ".monitor". A second node of the same name has "#2" at its end.
class PipeWireBackend : public CaptureBackend {
 public:
  /// What of the daemon it shows, and by which way.
  struct Reach {
    const char* name = "pipewire";
    bool hasCameras = true;
    bool hasSound = true;
    std::shared_ptr<PipeWireGate> gate = nullptr;
    /// Opens the video node of a camera for its controls; nullptr when it cannot. Empty: nodes are not looked at.
    std::function<std::unique_ptr<CaptureControlPort>(const std::string& path)> openControls = nullptr;
  };

  explicit PipeWireBackend(Reach reach);
  ~PipeWireBackend() override;

  const char* name() const override { return reach_.name; }
  void start(CaptureBackendObserver& observer) override;
  void stop() override;
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) override {
    // A client sees only those nodes that it may use.
    return isAsked(mediaType) ? reach_.gate->status() : CaptureAuthorizationStatus::authorized;
  }
  void awaitAccess(MediaType mediaType) override {
    constexpr std::chrono::seconds kPatienceWithPeople(60);
    if (isAsked(mediaType)) reach_.gate->await(kPatienceWithPeople);
  }
  std::optional<Error> problem() const override;

 private:
  class Registry;

  bool isAsked(MediaType mediaType) const { return reach_.gate && mediaType == MediaType::video; }

  const Reach reach_;
  std::unique_ptr<Registry> registry_;
};

}  // namespace tavrel
