#pragma once

namespace tavrel {

// The notifications that the library posts through `NotificationCenter::defaultCenter()`. Observers are called on the
// posting thread.

// Posted on the main thread; the object is the `Application`.

/// Memory is short; observers should free their caches.
inline constexpr const char* kApplicationDidReceiveMemoryWarningNotification =
    "ApplicationDidReceiveMemoryWarningNotification";
inline constexpr const char* kApplicationDidBecomeActiveNotification = "ApplicationDidBecomeActiveNotification";
inline constexpr const char* kApplicationWillResignActiveNotification = "ApplicationWillResignActiveNotification";
inline constexpr const char* kApplicationDidEnterBackgroundNotification = "ApplicationDidEnterBackgroundNotification";
inline constexpr const char* kApplicationWillEnterForegroundNotification = "ApplicationWillEnterForegroundNotification";
/// The process is about to end. Posted once; flushes the log, and the main run loop stops afterwards.
inline constexpr const char* kApplicationWillTerminateNotification = "UIApplicationWillTerminateNotification";

// Posted on the global queue.

/// The sound service was restarted; the object is the `AudioSession`. Devices are rediscovered automatically.
inline constexpr const char* kAudioSessionMediaServicesWereResetNotification =
    "AudioSessionMediaServicesWereResetNotification";
/// A device was plugged in or unplugged; the object is the `CaptureDevice`.
inline constexpr const char* kCaptureDeviceWasConnectedNotification = "CaptureDeviceWasConnectedNotification";
inline constexpr const char* kCaptureDeviceWasDisconnectedNotification = "CaptureDeviceWasDisconnectedNotification";
/// A device failed while in use; the object is the `CaptureSession`, whose `runtimeError` says why.
inline constexpr const char* kCaptureSessionRuntimeErrorNotification = "CaptureSessionRuntimeErrorNotification";
/// A device that had failed or been unplugged delivers again; the object is the `CaptureSession`.
inline constexpr const char* kCaptureSessionDidRecoverNotification = "CaptureSessionDidRecoverNotification";

}  // namespace tavrel
