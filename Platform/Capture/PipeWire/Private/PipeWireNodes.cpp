#include "Platform/Capture/PipeWire/Private/PipeWireNodes.h"

#include <fmt/format.h>
#include <pipewire/keys.h>
#include <spa/utils/json.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "Platform/Capture/Private/CameraModes.h"
#include "Platform/Foundation/JSONString.h"

namespace tavrel {
namespace {

constexpr double kSampleRate = 48000;
constexpr std::uint32_t kMostChannels = 2;
constexpr std::string_view kMonitorSuffix = ".monitor";

}  // namespace

PipeWireNodeKind pipeWireNodeKindOf(const char* mediaClass) {
  const std::string_view name = mediaClass ? mediaClass : "";
  if (name == "Video/Source") return PipeWireNodeKind::camera;
  if (name == "Audio/Source" || name == "Audio/Source/Virtual" || name == "Audio/Duplex") {
    return PipeWireNodeKind::microphone;
  }
  if (name == "Audio/Sink") return PipeWireNodeKind::monitor;
  return PipeWireNodeKind::none;
}

std::string pipeWireNameOf(const PipeWireProperties& properties) {
  std::string name;
  for (const char* key : {PW_KEY_NODE_NAME, PW_KEY_NODE_NICK, PW_KEY_NODE_DESCRIPTION}) {
    if (const std::string text = valueOf(properties, key); !text.empty()) name = text;
  }
  return plainText(name);
}

CaptureDeviceDescription describePipeWireNode(const std::string& name, PipeWireNodeKind kind,
                                              const PipeWireProperties& properties,
                                              const std::vector<PipeWireMode>& modes, std::uint32_t channels,
                                              double largestZoom) {
  CaptureDeviceDescription description;
  const bool isMonitor = kind == PipeWireNodeKind::monitor;
  description.uniqueID = fmt::format("pipewire:{}{}", plainText(name), isMonitor ? kMonitorSuffix : "");
  description.localizedName = pipeWireNameOf(properties);
  if (isMonitor) description.localizedName = "Monitor of " + description.localizedName;
  description.backendName = "pipewire";
  description.isMonitor = isMonitor;
  if (kind == PipeWireNodeKind::camera) {
    description.isOwnFeed = valueOf(properties, kFeedProcessKey) == std::to_string(getpid());
    description.position = positionOf(properties);
    description.mountRotation = mountRotationOf(properties);
    description.formats = deviceFormatsOf(modes, largestZoom);
    return description;
  }
  description.mediaType = MediaType::audio;
  auto format = std::make_shared<CaptureDeviceFormat>();
  format->mediaType = MediaType::audio;
  format->audioFormat.sampleRate = kSampleRate;
  format->audioFormat.channelCount = std::clamp(channels, 1U, kMostChannels);
  description.formats = {std::move(format)};
  return description;
}

std::string nameInPipeWireMetadata(const char* text) {
  if (!text) return {};
  std::array<spa_json, 2> iterators{};
  spa_json_init(&iterators[0], text, strlen(text));
  if (spa_json_enter_object(&iterators[0], &iterators[1]) <= 0) return {};
  std::array<char, 256> key{};
  while (spa_json_get_string(&iterators[1], key.data(), key.size()) > 0) {
    std::array<char, 1024> value{};
    if (spa_json_get_string(&iterators[1], value.data(), value.size()) <= 0) break;
    if (std::string_view(key.data()) == "name") return value.data();
  }
  return {};
}

}  // namespace tavrel
