#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "Command.h"
#include "EncodingOptions.h"
#include "Platform/Graphics/GraphicsDisplay.h"
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

/// The renderer, its display, and the GPUs to choose from.
struct Graphics {
  std::string renderer;
  std::string display = GraphicsDisplay::shared().description();
  std::string backing;
  std::vector<std::string> devices = GraphicsDisplay::deviceNames();

  static Expected<Graphics> examine() {
    const auto context = GLContext::create();
    if (!context) return tl::unexpected<Error>(context.error());
    Graphics graphics;
    if (!(*context)->makeCurrent()) return graphics;
    graphics.renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    GLContext::clearCurrent();
    graphics.backing = !TextureCache::isSupported() ? "plain" : TextureCache::sharesMemory() ? "zero copy" : "staged";
    return graphics;
  }
};

void print(const Graphics& graphics) {
  fmt::print("{}\n    graphics, {}, {}\n", graphics.renderer, graphics.display, graphics.backing);
  for (const std::string& device : graphics.devices) fmt::print("    {}\n", device);
}

nlohmann::ordered_json json(const Graphics& graphics) {
  return {{"id", "graphics"},
          {"name", graphics.renderer},
          {"type", "graphics"},
          {"display", graphics.display},
          {"backing", graphics.backing},
          {"devices", graphics.devices}};
}

void print(const std::vector<VideoEncoderInfo>& encoders) {
  fmt::print("encoders of pictures\n");
  for (const VideoEncoderInfo& encoder : encoders) {
    fmt::print("    {}, {}{}\n", encoder.name, codecName(encoder.codec), encoder.isHardware ? ", hardware" : "");
  }
}

nlohmann::ordered_json json(const VideoEncoderInfo& encoder) {
  return {{"id", encoder.name},
          {"name", encoder.name},
          {"type", "encoder"},
          {"codec", codecName(encoder.codec)},
          {"hardware", encoder.isHardware}};
}

class DevicesCommand : public Command {
 public:
  explicit DevicesCommand(CLI::App& app)
      : Command(app, "devices", "List cameras, microphones, the graphics device and the encoders that open") {
    command_->add_flag("--json", json_, "Print the list as JSON");
  }

  int run() override {
    auto list = nlohmann::ordered_json::array();
    if (CaptureDevice::hasStandIns()) say("no camera or microphone is connected: virtual ones stand in");
    for (const MediaType mediaType : {MediaType::video, MediaType::audio}) {
      const auto devices = CaptureDevice::devicesWithMediaType(mediaType);
      if (devices.empty()) say("{}", CaptureDevice::deviceNamed("default", mediaType).error().description);
      for (const auto& device : devices) {
        if (json_) {
          list.push_back(json(*device));
        } else {
          print(*device);
        }
      }
    }
    const auto graphics = Graphics::examine();
    if (graphics && json_) list.push_back(json(*graphics));
    if (graphics && !json_) print(*graphics);
    const auto encoders = AssetWriter::videoEncoders();
    for (const VideoEncoderInfo& encoder : encoders) {
      if (json_) list.push_back(json(encoder));
    }
    if (!json_) print(encoders);
    if (json_) printJson(list);
    return graphics ? kSuccess : fail("{}", graphics.error().description);
  }

 private:
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeDevicesCommand(CLI::App& app) { return std::make_unique<DevicesCommand>(app); }

}  // namespace tavrel::tool
