#include "Platform/Capture/CaptureDeviceInput.h"

#include <fmt/format.h>

#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureSystem.h"

namespace tavrel {

Expected<std::shared_ptr<CaptureDeviceInput>> CaptureDeviceInput::create(std::shared_ptr<CaptureDevice> device) {
  if (!device) return failure(CaptureErrorCode::noSuchDevice, "an input needs a device, and there is none");
  if (auto usable = CaptureSystem::checkAvailable(*device); !usable) return tl::unexpected(usable.error());
  return std::shared_ptr<CaptureDeviceInput>(new CaptureDeviceInput(std::move(device)));
}

}  // namespace tavrel
