#include "WrittenMovie.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "Report.h"

namespace tavrel::tool {

int WrittenMovie::report(bool asJson, Diagnostics& diagnostics) const {
  if (size != askedSize) {
    say("the codec takes even sizes only: {:.0f}x{:.0f} is stored as {:.0f}x{:.0f}, its last row or column repeated",
        askedSize.width, askedSize.height, size.width, size.height);
  }
  if (asJson) {
    nlohmann::ordered_json result = {{"output", file.string()},
                                     {"width", std::llround(size.width)},
                                     {"height", std::llround(size.height)},
                                     {"seconds", std::round(seconds * 1000) / 1000},
                                     {"frames", frames}};
    if (framesLost) result["dropped"] = *framesLost;
    if (sound) result["sound"] = *sound;
    if (camera) {
      result["camera"] = {{"format", camera->format},
                          {"width", camera->dimensions.width},
                          {"height", camera->dimensions.height},
                          {"fps", camera->framesPerSecond},
                          {"buffers", camera->memory}};
    }
    diagnostics.addTo(result);
    printJson(result);
    return exitStatus();
  }
  fmt::print("{} {:.0f}x{:.0f}, {:.1f} s, {} frames", file.string(), size.width, size.height, seconds, frames);
  if (framesLost.value_or(0) > 0) fmt::print(", {} lost", *framesLost);
  if (sound) fmt::print(", sound {}", *sound);
  fmt::print("\n");
  return exitStatus();
}

int WrittenMovie::exitStatus() const {
  if (framesRead.value_or(frames) <= frames) return kSuccess;
  return fail("{} frames were read and {} are in {}", *framesRead, frames, file.string());
}

}  // namespace tavrel::tool
