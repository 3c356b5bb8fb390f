#pragma once

#include <memory>

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
  PipeWireBackend();
  ~PipeWireBackend() override;

  const char* name() const override { return "pipewire"; }
  void start(CaptureBackendObserver& observer) override;
  void stop() override;
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) override;
  std::optional<Error> problem() const override;

 private:
  class Registry;
  std::unique_ptr<Registry> registry_;
};

}  // namespace tavrel
