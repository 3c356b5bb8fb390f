#include "Platform/Capture/Private/CaptureBackends.h"

#include "Platform/Capture/PipeWire/Private/PipeWireBackend.h"
#include "Platform/Capture/V4L2/Private/V4L2Backend.h"

namespace tavrel {

std::vector<std::unique_ptr<CaptureBackend>> makeCaptureBackends(std::string_view name) {
  std::vector<std::unique_ptr<CaptureBackend>> backends;
  if (name == "pipewire" || name == "auto") backends.push_back(std::make_unique<PipeWireBackend>());
  if (name == "v4l2" || name == "auto") backends.push_back(std::make_unique<V4L2Backend>());
  return backends;
}

}  // namespace tavrel
