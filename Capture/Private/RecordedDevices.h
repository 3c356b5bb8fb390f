#pragma once

#include "Capture/TavrelRecording.h"

namespace tavrel {

class CaptureSession;

/// What a recording needs to know of its devices, each in a session of its own. Any thread.

/// Whether the session's device says when it captured.
bool isStamped(const CaptureSession& session);
/// The recording as it is; one without a picture, which is none, with the reason as its error, and without a file.
TavrelRecording withPictures(TavrelRecording recording, const CaptureSession& camera);

}  // namespace tavrel
