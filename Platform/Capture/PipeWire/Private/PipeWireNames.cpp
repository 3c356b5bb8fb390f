#include "Platform/Capture/PipeWire/Private/PipeWireNames.h"

#include <spa/buffer/type-info.h>
#include <spa/debug/types.h>
#include <spa/param/type-info.h>
#include <spa/param/video/format-utils.h>

#include <cstdlib>

#include "Platform/Capture/Private/CaptureTimes.h"

namespace tavrel {

std::string pipeWireFormatName(const spa_pod& parameter) {
  spa_video_info info{};
  if (spa_format_video_parse(&parameter, &info) < 0) return "an unknown format";
  const char* name = info.media_subtype == SPA_MEDIA_SUBTYPE_raw
                         ? spa_debug_type_find_short_name(spa_type_video_format, info.info.raw.format)
                         : spa_debug_type_find_short_name(spa_type_media_subtype, info.media_subtype);
  return name ? name : "an unknown format";
}

std::string pipeWireMemoryName(std::uint32_t dataType) {
  const char* name = spa_debug_type_find_short_name(spa_type_data_type, dataType);
  return name ? name : "unknown";
}

std::string valueOf(const PipeWireProperties& properties, const char* key) {
  const auto found = properties.find(key);
  return found != properties.end() ? found->second : std::string();
}

CaptureDevicePosition positionOf(const PipeWireProperties& properties) {
  const std::string location = valueOf(properties, "api.libcamera.location");
  if (location == "front") return CaptureDevicePosition::front;
  if (location == "back") return CaptureDevicePosition::back;
  return CaptureDevicePosition::unspecified;
}

int mountRotationOf(const PipeWireProperties& properties) {
  const std::string rotation = valueOf(properties, "api.libcamera.rotation");
  return mountRotationOf(static_cast<int>(std::strtol(rotation.c_str(), nullptr, 10)));
}

}  // namespace tavrel
