#pragma once

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The recorder's calls as the commands make them: each returns when it is done, while the main thread's work goes on.

/// Returns when the devices run, or with the reason why they do not.
Expected<void> startDevices(TavrelRecorder& recorder);
/// Completes the movie that is being written.
TavrelRecording finishMovie(TavrelRecorder& recorder);

/// One line for the person at the terminal about a device that is lost or back; nothing about other events.
void sayEvent(const TavrelRecorderEvent& event);
/// Says why a recording broke off, up to when it plays and where it is. The exit status.
int sayBrokenOff(const TavrelRecording& recording);

}  // namespace tavrel::tool
