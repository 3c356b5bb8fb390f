#include "RecorderCalls.h"

#include <optional>

#include "Report.h"

namespace tavrel::tool {

Expected<void> startDevices(TavrelRecorder& recorder) {
  // Shared: an answer that comes too late still finds a place.
  const auto answer = std::make_shared<std::optional<Expected<void>>>();
  recorder.startWithCompletion([answer](const std::optional<Error>& error) {
    *answer = error ? Expected<void>(tl::unexpected(*error)) : Expected<void>();
  });
  constexpr std::chrono::seconds kPatience(20);
  if (RunLoop::main().runUntil([&] { return answer->has_value(); }, kPatience)) return **answer;
  return failure("posix", ETIMEDOUT, "the devices do not start");
}

TavrelRecording finishMovie(TavrelRecorder& recorder) {
  std::optional<TavrelRecording> finished;
  recorder.finishWritingWithCompletion([&](const auto& recording) { finished = recording.value(); });
  while (!finished) RunLoop::main().runUntil([&] { return finished.has_value(); }, std::chrono::seconds(1));
  return *finished;
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
