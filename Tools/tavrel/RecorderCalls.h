#pragma once

#include <functional>
#include <optional>

#include "Platform/Capture/CaptureDelivery.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The recorder's calls, made synchronous: each runs the main loop until it is done.

/// As `TavrelRecorder::create`; prints a line when virtual devices stand in, or when there is no microphone. Fails
/// where the camera does not enlarge pictures `zoom` times.
Expected<std::shared_ptr<TavrelRecorder>> openRecorder(const TavrelRecorderConfiguration& configuration,
                                                       double zoom = 1);
/// Uses the next camera of those that are listed, whichever it is.
void switchToNextCamera(TavrelCamera& camera);
/// Returns when the devices run, or why they do not; at once when `isGivenUp`, which is looked at ten times a second.
Expected<void> startDevices(TavrelRecorder& recorder, const std::function<bool()>& isGivenUp = {});
TavrelRecording finishMovie(TavrelRecorder& recorder);

/// What the camera delivers; prints a line when that is not what the recorder was asked for.
std::optional<CaptureDelivery> sayDelivery(const TavrelCamera& camera, const TavrelRecorderConfiguration& asked);
/// Prints a line about a device that was lost or is back; ignores other events.
void sayEvent(const TavrelRecorderEvent& event);
/// Prints why a recording broke off, how far it plays and where it is. Returns the exit status.
int sayBrokenOff(const TavrelRecording& recording);

}  // namespace tavrel::tool
