#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// Codes of errors in the domain "capture". The numbers are stable. Other failures of the system have the domain
/// "posix" and an errno.
enum class CaptureErrorCode : std::int64_t {
  noSuchDevice = -1,           ///< no such device is connected; the description lists those that are
  notConnected = -2,           ///< the device was unplugged when it was asked for
  unplugged = -3,              ///< the device was unplugged while in use
  busy = -4,                   ///< another session or another program uses the device
  permissionDenied = -5,       ///< the process may not open the device
  unsupportedFormat = -6,      ///< the device lacks the format, or delivers a different one than negotiated
  deviceSilent = -7,           ///< the device did not start or deliver anything in time
  deviceFailed = -8,           ///< the device, its driver or its service reported a failure
  notRunning = -9,             ///< a still was requested while the session was not running
  stopped = -10,               ///< the session or output ended before a still was captured
  invalidConnection = -11,     ///< the connection does not belong to this output
  damagedFrame = -12,          ///< a frame is truncated or corrupt
  outOfMemory = -13,           ///< no memory for frames or audio
  noPicture = -14,             ///< the sample buffer holds no picture
  encodingFailed = -15,        ///< the picture could not be encoded
  noSuchFile = -16,            ///< the file to be used as a device does not exist
  badScene = -17,              ///< the file to be used as a camera has no decodable picture
  badSound = -18,              ///< the file to be used as a microphone has no decodable sound
  invalidConfiguration = -19,  ///< the requested configuration of a virtual device is out of range
  noPortal = -20,              ///< cameras are asked for at the desktop's portal, and there is none
  permissionPending = -21,     ///< the desktop asks a person, who has not answered yet
};

constexpr const char* errorDomain(CaptureErrorCode) { return "capture"; }

}  // namespace tavrel
