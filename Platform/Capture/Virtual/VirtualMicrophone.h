#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/Virtual/VirtualSound.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Media/AudioFormat.h"

namespace tavrel {

class SampleBuffer;

/// A microphone without hardware: it delivers a sound as mono buffers of 256 samples, each when its last sample is due
/// on the clock, from a thread of its own ("tavrel.vmic"). Whoever stamps sound at its arrival is late by one buffer,
/// so buffers are short.
///
/// At most 64 buffers are on their way to the handler. On a real-time clock further ones are dropped and counted;
/// on another clock the microphone waits. All members may be called from any thread.
///
///     stopped ──start──▶ running ──stop──▶ stopped
class TAVREL_API VirtualMicrophone {
 public:
  static constexpr int kSamplesPerBuffer = 256;

  /// Receives a buffer stamped with the time of its first sample on the clock: start time + samples / rate, rounded to
  /// the clock's timescale.
  using Handler = std::function<void(std::shared_ptr<SampleBuffer>)>;

  struct Configuration {
    int sampleRate = 48000;  ///< samples a second, 8000 … 192000
    AudioSampleType sampleType = AudioSampleType::float32;
    std::shared_ptr<CaptureClock> clock = CaptureClock::realTime();
  };

  /// A microphone named "synthetic" (tone, noise and beeps) or "file:PATH" (a sound file). Fails (`CaptureErrorCode`)
  /// for any other name, for a file that is no sound, and for a configuration out of range.
  static Expected<std::shared_ptr<VirtualMicrophone>> create(std::string_view name, Configuration configuration);
  /// A microphone that hears `sound`, which belongs to it from now on and has the configuration's rate.
  static Expected<std::shared_ptr<VirtualMicrophone>> create(std::shared_ptr<VirtualSound> sound,
                                                             Configuration configuration);

  VirtualMicrophone(const VirtualMicrophone&) = delete;
  VirtualMicrophone& operator=(const VirtualMicrophone&) = delete;
  /// Stops.
  ~VirtualMicrophone();

  const Configuration& configuration() const;

  /// Delivers buffers to `handler` on `queue`; sample 0 is at `startTime` (now, when it is not numeric). Does nothing
  /// while running. Without a queue the handler is called on the microphone's thread, which then waits for it.
  /// `sceneStart` is the sound's time at `startTime`, in seconds.
  void start(Handler handler, std::shared_ptr<DispatchQueue> queue, MediaTime startTime = MediaTime::invalid(),
             double sceneStart = 0);
  /// Ends the delivery; when it returns, no handler runs any more, and none will. From inside the handler it returns at
  /// once, and the running call is the last one.
  void stop();
  bool isRunning() const;

  /// Since the last start.
  std::uint64_t deliveredBuffers() const;
  std::uint64_t droppedBuffers() const;

 private:
  struct Implementation;
  explicit VirtualMicrophone(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
