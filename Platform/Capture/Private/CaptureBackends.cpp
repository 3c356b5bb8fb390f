#include "Platform/Capture/Private/CaptureBackends.h"

#include <fmt/format.h>

#include "Platform/Capture/CaptureError.h"

#if TAVREL_WITH_PORTAL
#include "Platform/Capture/PipeWire/Private/CameraPortal.h"
#endif
#if TAVREL_WITH_PIPEWIRE
#include "Platform/Capture/PipeWire/Private/PipeWireBackend.h"
#include "Platform/Capture/PipeWire/Private/PipeWireFeed.h"
#endif
#if TAVREL_WITH_V4L2
#include "Platform/Capture/V4L2/Private/V4L2Backend.h"
#include "Platform/Capture/V4L2/Private/V4L2Controls.h"
#include "Platform/Capture/V4L2/Private/V4L2Feed.h"
#endif

namespace tavrel {

std::vector<std::shared_ptr<CaptureBackend>> makeCaptureBackends([[maybe_unused]] std::string_view name) {
  std::vector<std::shared_ptr<CaptureBackend>> backends;
#if TAVREL_WITH_PORTAL
  if (name == "portal" || (name == "auto" && CameraPortal::isNeeded())) {
    backends.push_back(std::make_shared<PipeWireBackend>(
        PipeWireBackend::Reach{.name = "portal", .hasSound = false, .gate = std::make_shared<CameraPortal>()}));
    backends.push_back(std::make_shared<PipeWireBackend>(PipeWireBackend::Reach{.hasCameras = false}));
    return backends;
  }
#endif
#if TAVREL_WITH_PIPEWIRE
  if (name == "pipewire" || name == "auto") {
    PipeWireBackend::Reach reach;
#if TAVREL_WITH_V4L2
    reach.openControls = [](const std::string& path) { return V4L2ControlPort::open(path); };
#endif
    backends.push_back(std::make_shared<PipeWireBackend>(std::move(reach)));
  }
#endif
#if TAVREL_WITH_V4L2
  if (name == "v4l2" || name == "auto") backends.push_back(std::make_shared<V4L2Backend>());
#endif
  return backends;
}

Expected<std::unique_ptr<CameraFeed>> makeCameraFeed(std::string_view destination,
                                                     [[maybe_unused]] const CameraFeed::Description& description,
                                                     [[maybe_unused]] CameraFeed::Events events) {
#if TAVREL_WITH_PIPEWIRE
  if (destination == "pipewire") return PipeWireFeed::create(description, std::move(events));
#endif
#if TAVREL_WITH_V4L2
  if (destination != "pipewire") return V4L2Feed::create(std::string(destination), description, std::move(events));
#endif
  return failure(CaptureErrorCode::invalidConfiguration,
                 fmt::format("{}: this kind of camera was not built in", destination));
}

}  // namespace tavrel
