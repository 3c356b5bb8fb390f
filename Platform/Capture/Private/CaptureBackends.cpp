#include "Platform/Capture/Private/CaptureBackends.h"

namespace tavrel {

std::vector<std::unique_ptr<CaptureBackend>> makeCaptureBackends(std::string_view /*name*/) {
  return {};
}

}  // namespace tavrel
