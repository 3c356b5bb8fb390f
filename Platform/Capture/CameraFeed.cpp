#include "Platform/Capture/CameraFeed.h"

#include <fmt/format.h>

#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureBackends.h"

namespace tavrel {
namespace {

constexpr int kLargestSide = 16384;

bool isEvenSide(int side) { return side >= 2 && side <= kLargestSide && side % 2 == 0; }

}  // namespace

Expected<std::unique_ptr<CameraFeed>> CameraFeed::create(std::string_view destination, const Description& description,
                                                         Events events) {
  const auto invalid = [](std::string text) {
    return failure(CaptureErrorCode::invalidConfiguration, std::move(text));
  };
  if (!isEvenSide(description.width) || !isEvenSide(description.height)) {
    return invalid(fmt::format("a camera for other programs cannot be {}x{}: expected even sides of 2 to {}",
                               description.width, description.height, kLargestSide));
  }
  if (!(description.framesPerSecond >= 1 && description.framesPerSecond <= 240)) {
    return invalid(fmt::format("a camera for other programs cannot have {} frames a second: expected 1 to 240",
                               description.framesPerSecond));
  }
  if (description.name.empty()) return invalid("a camera for other programs needs a name");
  if (destination != "pipewire" && !destination.starts_with('/')) {
    return invalid(fmt::format("a camera cannot be shown at \"{}\": expected pipewire or a video node (/dev/videoN)",
                               destination));
  }
  Description complete = description;
  if (complete.formats.empty()) {
    // Of a video node, many programs read nothing but YUY2.
    complete.formats = {CameraFeedFormat::nv12, CameraFeedFormat::yuy2, CameraFeedFormat::bgra};
    if (destination != "pipewire") std::swap(complete.formats[0], complete.formats[1]);
  }
  return makeCameraFeed(destination, complete, std::move(events));
}

}  // namespace tavrel
