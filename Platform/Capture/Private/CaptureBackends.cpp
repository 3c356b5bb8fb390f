#include "Platform/Capture/Private/CaptureBackends.h"

#if TAVREL_WITH_PIPEWIRE
#include "Platform/Capture/PipeWire/Private/PipeWireBackend.h"
#endif
#if TAVREL_WITH_V4L2
#include "Platform/Capture/V4L2/Private/V4L2Backend.h"
#endif

namespace tavrel {

std::vector<std::unique_ptr<CaptureBackend>> makeCaptureBackends([[maybe_unused]] std::string_view name) {
  std::vector<std::unique_ptr<CaptureBackend>> backends;
#if TAVREL_WITH_PIPEWIRE
  if (name == "pipewire" || name == "auto") backends.push_back(std::make_unique<PipeWireBackend>());
#endif
#if TAVREL_WITH_V4L2
  if (name == "v4l2" || name == "auto") backends.push_back(std::make_unique<V4L2Backend>());
#endif
  return backends;
}

}  // namespace tavrel
