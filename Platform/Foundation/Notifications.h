#pragma once

namespace tavrel {

// Every notification that the library posts through `NotificationCenter::defaultCenter()`, by its name. Observers are
// called on the posting thread, which is said here.

// Of the application, posted on the main thread; the object is the `Application`.

/// The system runs short of memory: caches are to be emptied.
inline constexpr const char* kApplicationDidReceiveMemoryWarningNotification =
    "ApplicationDidReceiveMemoryWarningNotification";
inline constexpr const char* kApplicationDidBecomeActiveNotification = "ApplicationDidBecomeActiveNotification";
inline constexpr const char* kApplicationWillResignActiveNotification = "ApplicationWillResignActiveNotification";
inline constexpr const char* kApplicationDidEnterBackgroundNotification = "ApplicationDidEnterBackgroundNotification";
inline constexpr const char* kApplicationWillEnterForegroundNotification = "ApplicationWillEnterForegroundNotification";
/// The process was asked to end. Posted once; the log is flushed then, and the main run loop stops afterwards.
inline constexpr const char* kApplicationWillTerminateNotification = "UIApplicationWillTerminateNotification";

// Of sound and capture, posted on the global queue.

/// The system's sound service went away and came back; the object is the `AudioSession`. Devices are found again by
/// themselves.
inline constexpr const char* kAudioSessionMediaServicesWereResetNotification =
    "AudioSessionMediaServicesWereResetNotification";
/// A device was plugged in, or went away; the object is the `CaptureDevice`.
inline constexpr const char* kCaptureDeviceWasConnectedNotification = "CaptureDeviceWasConnectedNotification";
inline constexpr const char* kCaptureDeviceWasDisconnectedNotification = "CaptureDeviceWasDisconnectedNotification";
/// A device failed while it was used; the object is the `CaptureSession`, whose `runtimeError` says why.
inline constexpr const char* kCaptureSessionRuntimeErrorNotification = "CaptureSessionRuntimeErrorNotification";
/// A device that had failed or was unplugged delivers again; the object is the `CaptureSession`.
inline constexpr const char* kCaptureSessionDidRecoverNotification = "CaptureSessionDidRecoverNotification";

}  // namespace tavrel
