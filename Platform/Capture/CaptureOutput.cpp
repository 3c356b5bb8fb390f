#include "Platform/Capture/CaptureOutput.h"

namespace tavrel {

CaptureOutput::~CaptureOutput() = default;

std::shared_ptr<CaptureConnection> CaptureOutput::connectionWithMediaType(MediaType mediaType) const {
  if (mediaType != mediaType_) return nullptr;
  const std::lock_guard lock(connectionMutex_);
  return connection_ && connection_->isActive() ? connection_ : nullptr;
}

}  // namespace tavrel
