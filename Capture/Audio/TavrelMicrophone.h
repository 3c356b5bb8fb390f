#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Capture/CaptureAudioDataOutput.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class TavrelMicrophone;

/// Receives what a microphone hears.
class TAVREL_API TavrelMicrophoneDelegate {
 public:
  virtual ~TavrelMicrophoneDelegate() = default;

  /// PCM, stamped with the clock that stamps camera frames; on the main thread.
  virtual void didGetProcessedSampleBuffer(TavrelMicrophone& /*microphone*/,
                                           const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/) {}
};

/// With what a `TavrelMicrophone` begins.
struct TavrelMicrophoneConfiguration {
  /// Silence instead of sound.
  bool mute = false;
  /// The `uniqueID` of the microphone; empty: the default one.
  std::string deviceID;
};

/// Captures the sound of a microphone, in a session of its own. Sound comes on the main thread, which must
/// run `RunLoop::main()`; everything else on any thread.
class TAVREL_API TavrelMicrophone : public CaptureAudioDataOutputSampleBufferDelegate,
                                    public std::enable_shared_from_this<TavrelMicrophone> {
 public:
  /// Whether access was granted, and what else went wrong.
  using StartCompletion = std::function<void(bool isGranted, std::optional<Error> error)>;

  /// Fails when there is no microphone or it cannot be opened, with the platform's error, and with code -4002 when the
  /// session refuses it or the output.
  static Expected<std::shared_ptr<TavrelMicrophone>> create(const TavrelMicrophoneConfiguration& configuration);
  TavrelMicrophone(const TavrelMicrophone&) = delete;
  TavrelMicrophone& operator=(const TavrelMicrophone&) = delete;
  /// Stops.
  ~TavrelMicrophone() override;

  std::shared_ptr<TavrelMicrophoneDelegate> delegate() const;
  void setDelegate(std::weak_ptr<TavrelMicrophoneDelegate> delegate);
  bool running() const;
  /// The subject of the notifications about what becomes of the device.
  const std::shared_ptr<CaptureSession>& captureSession() const;
  /// Buffers keep coming while muted, so that a recording keeps its sound track.
  bool mute() const;
  void setMute(bool mute);
  /// In decibels of full scale, the mean over the channels; 0 while there are none.
  float averagePowerLevel() const;

  /// Asks for access, starts and sets the audio session up. `completion` (may be empty) is called on the global queue;
  /// at once, with true, while running.
  void startWithCompletion(StartCompletion completion);
  /// Returns when nothing more is captured.
  void stop();

  void didOutputSampleBuffer(CaptureAudioDataOutput& output, const std::shared_ptr<SampleBuffer>& sampleBuffer,
                             const std::shared_ptr<CaptureConnection>& connection) override;

 private:
  struct Implementation;

  explicit TavrelMicrophone(bool mute);
  Expected<void> setupSession(const std::string& deviceID);
  void addObservers();

  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
