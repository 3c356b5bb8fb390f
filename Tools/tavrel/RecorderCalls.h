#pragma once

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The recorder's calls, made synchronous: each runs the main loop until it is done.

/// Returns when the devices run, or why they do not.
Expected<void> startDevices(TavrelRecorder& recorder);
TavrelRecording finishMovie(TavrelRecorder& recorder);

/// Prints a line about a device that was lost or is back; ignores other events.
void sayEvent(const TavrelRecorderEvent& event);
/// Prints why a recording broke off, how far it plays and where it is. Returns the exit status.
int sayBrokenOff(const TavrelRecording& recording);

}  // namespace tavrel::tool
