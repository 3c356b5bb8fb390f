#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "Command.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {
namespace {

const char* nameOf(CaptureDevicePosition position) {
  switch (position) {
    case CaptureDevicePosition::front: return "front";
    case CaptureDevicePosition::back: return "back";
    default: return "unspecified";
  }
}

/// "1280x720 1-60 fps"
std::string description(const CaptureDeviceFormat& format) {
  if (format.mediaType == MediaType::audio) {
    return fmt::format("{:.0f} Hz, {} channels", format.audioFormat.sampleRate, format.audioFormat.channelCount);
  }
  std::string text = fmt::format("{}x{}", format.dimensions.width, format.dimensions.height);
  double slowest = 1e9;
  double fastest = 0;
  for (const CaptureFrameRateRange& range : format.videoSupportedFrameRateRanges) {
    slowest = std::min(slowest, range.minFrameRate);
    fastest = std::max(fastest, range.maxFrameRate);
  }
  if (fastest > 0)
    text += slowest < fastest ? fmt::format(" {:g}-{:g} fps", slowest, fastest) : fmt::format(" {:g} fps", fastest);
  return text;
}

void print(const CaptureDevice& device) {
  fmt::print("{}\n    {}, {}{}\n", device.localizedName(), device.uniqueID(), device.backendName(),
             device.mediaType() == MediaType::video ? fmt::format(", {}", nameOf(device.position())) : std::string());
  for (const auto& format : device.formats()) fmt::print("    {}\n", description(*format));
}

nlohmann::ordered_json json(const CaptureDevice& device) {
  auto formats = nlohmann::ordered_json::array();
  for (const auto& format : device.formats()) formats.push_back(description(*format));
  return {{"id", device.uniqueID()},
          {"name", device.localizedName()},
          {"type", device.mediaType() == MediaType::video ? "camera" : "microphone"},
          {"position", nameOf(device.position())},
          {"backend", device.backendName()},
          {"formats", std::move(formats)}};
}

class DevicesCommand : public Command {
 public:
  explicit DevicesCommand(CLI::App& app) : Command(app, "devices", "List cameras and microphones") {
    command_->add_flag("--json", json_, "Print the list as JSON");
  }

  int run() override {
    auto list = nlohmann::ordered_json::array();
    for (const MediaType mediaType : {MediaType::video, MediaType::audio}) {
      for (const auto& device : CaptureDevice::devicesWithMediaType(mediaType)) {
        if (json_) {
          list.push_back(json(*device));
        } else {
          print(*device);
        }
      }
    }
    if (json_) printJson(list);
    return kSuccess;
  }

 private:
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeDevicesCommand(CLI::App& app) { return std::make_unique<DevicesCommand>(app); }

}  // namespace tavrel::tool
