#include "RecorderCalls.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <iterator>
#include <optional>

#include "Report.h"

namespace tavrel::tool {

namespace {

/// A person may have to answer first.
void awaitCameraAccess() {
  const auto isAnswered = std::make_shared<std::atomic<bool>>(false);
  CaptureDevice::requestAccess(MediaType::video, [isAnswered](bool) { *isAnswered = true; });
  while (!*isAnswered) RunLoop::main().runUntil([&] { return isAnswered->load(); }, std::chrono::seconds(1));
}

}  // namespace

Expected<std::shared_ptr<TavrelRecorder>> openRecorder(const TavrelRecorderConfiguration& configuration, double zoom) {
  awaitCameraAccess();
  auto recorder = TavrelRecorder::create(configuration);
  if (!recorder) return recorder;
  const auto& camera = (*recorder)->camera();
  if (const double most = camera->videoMaxZoomFactor(); zoom > most) {
    return failure(CaptureErrorCode::unsupportedFormat,
                   fmt::format("--zoom {:g}: this camera enlarges up to {:g} times", zoom, most));
  }
  camera->setPreferredVideoZoomFactor(zoom);
  const auto isUnnamed = [](const std::string& name) { return name == "front" || name == "back" || name == "default"; };
  if (CaptureDevice::hasStandIns() && (isUnnamed(configuration.camera) || isUnnamed(configuration.microphone))) {
    say("no camera or microphone is connected: virtual ones stand in");
  } else if (!configuration.microphone.empty() && !(*recorder)->microphone()) {
    say("no microphone is connected: there is no sound");
  }
  return recorder;
}

void switchToNextCamera(TavrelCamera& camera) {
  auto all = CaptureDevice::devicesWithMediaType(MediaType::video);
  std::erase_if(all, [](const auto& device) { return device->isLoopback(); });
  const auto current =
      std::find_if(all.begin(), all.end(), [&](const auto& device) { return device->uniqueID() == camera.deviceID(); });
  if (all.empty() || (current != all.end() && all.size() == 1)) return say("there is no other camera");
  const bool isLast = current == all.end() || std::next(current) == all.end();
  camera.setPreferredDeviceID((isLast ? all.front() : *std::next(current))->uniqueID());
}

Expected<void> startDevices(TavrelRecorder& recorder, const std::function<bool()>& isGivenUp) {
  // Shared: an answer that comes too late still finds a place.
  const auto answer = std::make_shared<std::optional<Expected<void>>>();
  recorder.startWithCompletion([answer](const std::optional<Error>& error) {
    *answer = error ? Expected<void>(tl::unexpected(*error)) : Expected<void>();
  });
  constexpr int kPatience = 200;
  for (int i = 0; i < kPatience && !(isGivenUp && isGivenUp()); ++i) {
    if (RunLoop::main().runUntil([&] { return answer->has_value(); }, std::chrono::milliseconds(100))) return **answer;
  }
  if (isGivenUp && isGivenUp()) return {};
  return failure("posix", ETIMEDOUT, "the devices do not start");
}

TavrelRecording finishMovie(TavrelRecorder& recorder) {
  std::optional<TavrelRecording> finished;
  recorder.finishWritingWithCompletion([&](const auto& recording) { finished = recording.value(); });
  while (!finished) RunLoop::main().runUntil([&] { return finished.has_value(); }, std::chrono::seconds(1));
  return *finished;
}

std::optional<CaptureDelivery> sayDelivery(const TavrelCamera& camera, const TavrelRecorderConfiguration& asked) {
  const auto device = CaptureDevice::deviceWithUniqueID(camera.deviceID());
  auto delivery = device ? device->delivery() : std::nullopt;
  if (!delivery) return delivery;
  const Size size = {static_cast<double>(delivery->dimensions.width), static_cast<double>(delivery->dimensions.height)};
  constexpr double kSameRate = 0.5;
  if (size != asked.size || std::abs(delivery->framesPerSecond - asked.framesPerSecond) > kSameRate) {
    say("{} gives {}", device->localizedName(), delivery->description());
  }
  return delivery;
}

void sayEvent(const TavrelRecorderEvent& event) {
  switch (event.kind) {
    case TavrelRecorderEvent::Kind::cameraLost:
    case TavrelRecorderEvent::Kind::microphoneLost:
      return say("{}; what else there is goes on", event.error ? event.error->description : "a device is lost");
    case TavrelRecorderEvent::Kind::cameraBack: return say("the camera is back");
    case TavrelRecorderEvent::Kind::microphoneBack: return say("the microphone is back");
    default: return;
  }
}

int sayBrokenOff(const TavrelRecording& recording) {
  const std::string reason = recording.error ? recording.error->description : "?";
  if (recording.playableSeconds <= 0) return fail("the recording broke off: {}; nothing was recorded", reason);
  return fail("the recording broke off: {}; the file plays up to {:.2f} s; {} is kept", reason,
              recording.playableSeconds, recording.file.string());
}

}  // namespace tavrel::tool
