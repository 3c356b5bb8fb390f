#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Platform/Capture/CameraFeed.h"
#include "Platform/Capture/Private/CaptureBackend.h"

namespace tavrel {

/// The backends for real devices that `name` (pipewire, v4l2, auto, virtual) asks for, best first.
std::vector<std::shared_ptr<CaptureBackend>> makeCaptureBackends(std::string_view name);
/// A feed whose description is valid, at "pipewire" or a video node's path.
Expected<std::unique_ptr<CameraFeed>> makeCameraFeed(std::string_view destination,
                                                     const CameraFeed::Description& description,
                                                     CameraFeed::Events events);

}  // namespace tavrel
