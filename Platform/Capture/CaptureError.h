#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// The codes of errors in the domain "capture" (`Error::code`). Stable numbers. What else the system refuses comes in
/// the domain "posix", with its errno.
enum class CaptureErrorCode : std::int64_t {
  noSuchDevice = -1,           ///< nothing of that name or type is connected; the text names what there is
  notConnected = -2,           ///< the device is unplugged, and was so when it was asked for
  unplugged = -3,              ///< the device went away while it was in use
  busy = -4,                   ///< another session or another program uses the device
  permissionDenied = -5,       ///< the process may not open the device
  unsupportedFormat = -6,      ///< the device has no such format, or delivers another one than it agreed to
  deviceSilent = -7,           ///< the device has not started, or has delivered nothing, in the time allowed
  deviceFailed = -8,           ///< the device, its driver or its service reported a failure
  notRunning = -9,             ///< a picture was asked of a session that does not run
  stopped = -10,               ///< the session stopped, or the output ended, before there was a picture
  invalidConnection = -11,     ///< the connection is not one of this output
  damagedFrame = -12,          ///< the bytes of a picture are cut off or damaged
  outOfMemory = -13,           ///< there is no memory left for pictures or sound
  noPicture = -14,             ///< a sample buffer without a picture was given
  encodingFailed = -15,        ///< the picture could not be encoded
  noSuchFile = -16,            ///< the file that was to be a device is missing
  badScene = -17,              ///< the file that was to be a camera has no pictures that can be decoded
  badSound = -18,              ///< the file that was to be a microphone has no sound that can be decoded
  invalidConfiguration = -19,  ///< a virtual device cannot be as it was asked to be
};

constexpr const char* errorDomain(CaptureErrorCode) { return "capture"; }

}  // namespace tavrel
