#pragma once

#include <memory>

#include "Platform/Capture/PipeWire/Private/PipeWireGate.h"
#include "Platform/Capture/Private/CaptureBackend.h"

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
  };

  explicit PipeWireBackend(Reach reach);
  ~PipeWireBackend() override;

  const char* name() const override { return reach_.name; }
  void start(CaptureBackendObserver& observer) override;
  void stop() override;
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) override;
  void awaitAccess(MediaType mediaType) override;
  std::optional<Error> problem() const override;

 private:
  class Registry;
  const Reach reach_;
  std::unique_ptr<Registry> registry_;
};

}  // namespace tavrel
