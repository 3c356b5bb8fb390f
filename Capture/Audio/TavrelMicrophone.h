#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Capture/CaptureAudioDataOutput.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class TavrelMicrophone;

/// Receives a microphone's audio.
class TAVREL_API TavrelMicrophoneDelegate {
 public:
  virtual ~TavrelMicrophoneDelegate() = default;

  /// PCM, stamped at its arrival with the clock that stamps camera frames. Main thread.
  virtual void didGetProcessedSampleBuffer(TavrelMicrophone& /*microphone*/,
                                           const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/) {}
};

/// Initial settings of a microphone.
struct TavrelMicrophoneConfiguration {
  bool mute = false;
  /// The `uniqueID` of the device; empty for the default one.
  std::string deviceID;
};

/// Captures a microphone in its own session. Audio is delivered on the main thread, which must run `RunLoop::main()`.
/// Members may be called from any thread.
class TAVREL_API TavrelMicrophone : public CaptureAudioDataOutputSampleBufferDelegate,
                                    public std::enable_shared_from_this<TavrelMicrophone> {
 public:
  /// Whether access was granted, and any other error.
  using StartCompletion = std::function<void(bool isGranted, std::optional<Error> error)>;

  /// Fails with the platform's error if there is no microphone or it cannot be used, and with code -4002 if the session
  /// refuses the input or output.
  static Expected<std::shared_ptr<TavrelMicrophone>> create(const TavrelMicrophoneConfiguration& configuration);
  TavrelMicrophone(const TavrelMicrophone&) = delete;
  TavrelMicrophone& operator=(const TavrelMicrophone&) = delete;
  ~TavrelMicrophone() override;  ///< stops

  std::shared_ptr<TavrelMicrophoneDelegate> delegate() const;
  void setDelegate(std::weak_ptr<TavrelMicrophoneDelegate> delegate);
  bool running() const;
  /// The object of the notifications about the device's failure and recovery.
  const std::shared_ptr<CaptureSession>& captureSession() const;
  /// Muted buffers are silent but still delivered, so that a recording keeps its audio track.
  bool mute() const;
  void setMute(bool mute);
  /// Mean of the channels' levels in dBFS; 0 before the first buffer.
  float averagePowerLevel() const;

  /// For the delegate while it is called: when the device heard the buffer's first sample, by the device's own stamp.
  MediaTime captureTime() const;

  /// Requests access, starts capturing and sets up the audio session. `completion`, which may be empty, is called on
  /// the global queue; with true if already running.
  void startWithCompletion(StartCompletion completion);
  /// Returns when nothing more is captured or handed to the delegate. Allowed in the delegate.
  void stop();

  void didOutputSampleBuffer(CaptureAudioDataOutput& output, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  struct Implementation;

  explicit TavrelMicrophone(bool mute);
  Expected<void> setupSession(const std::string& deviceID);
  void addObservers();

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
