#pragma once

#include <chrono>
#include <optional>

#include "TavrelCaptureBase.h"

namespace tavrel::test {

/// How long a recorder may take to answer before it counts as stuck.
inline constexpr std::chrono::seconds kRecorderPatience(60);

/// Starts both devices; whether they run. Main thread.
inline bool startDevices(TavrelRecorder& recorder) {
  std::optional<bool> isGood;
  recorder.startWithCompletion([&](const std::optional<Error>& error) { isGood = !error; });
  return RunLoop::main().runUntil([&] { return isGood.has_value(); }, kRecorderPatience) && *isGood;
}

/// Stops the devices and completes the movie that is being written. Main thread.
inline Expected<TavrelRecording> finishMovie(TavrelRecorder& recorder) {
  recorder.stop();
  std::optional<Expected<TavrelRecording>> finished;
  recorder.finishWritingWithCompletion([&](const Expected<TavrelRecording>& recording) { finished = recording; });
  if (RunLoop::main().runUntil([&] { return finished.has_value(); }, kRecorderPatience)) return *finished;
  return failure("test", 1, "the movie is never finished");
}

}  // namespace tavrel::test
