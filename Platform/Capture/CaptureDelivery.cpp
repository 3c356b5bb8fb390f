#include "Platform/Capture/CaptureDelivery.h"

#include <fmt/format.h>

namespace tavrel {

std::string CaptureDelivery::description() const {
  std::string text =
      fmt::format("{} {}x{}, {:.4g} frames a second", format, dimensions.width, dimensions.height, framesPerSecond);
  if (!memory.empty()) text += fmt::format(", {} buffers", memory);
  if (isInPlace) text += ", imported";
  if (!loss.empty()) text += "; " + loss;
  return text;
}

}  // namespace tavrel
