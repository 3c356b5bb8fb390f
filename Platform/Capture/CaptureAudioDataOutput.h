#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class CaptureAudioDataOutput;

/// Receives sound.
class TAVREL_API CaptureAudioDataOutputSampleBufferDelegate {
 public:
  virtual ~CaptureAudioDataOutputSampleBufferDelegate() = default;

  /// A run of PCM, on the delegate's queue; its time is that of its first sample on `CaptureClock::current()`.
  virtual void didOutputSampleBuffer(CaptureAudioDataOutput& /*output*/,
                                     const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/,
                                     const std::shared_ptr<CaptureConnection>& /*connection*/) {}
};

/// Hands the sound of a session's microphone to a delegate, with the levels of the connection's channels set before
/// each call. Up to 256 buffers (about five seconds) wait for a busy delegate; further ones are dropped and counted. On
/// a clock that does not pass by itself the microphone waits after sixteen. Any thread.
class TAVREL_API CaptureAudioDataOutput : public CaptureOutput,
                                          public std::enable_shared_from_this<CaptureAudioDataOutput> {
 public:
  static std::shared_ptr<CaptureAudioDataOutput> create();
  ~CaptureAudioDataOutput() override;

  /// As for `CaptureVideoDataOutput::setSampleBufferDelegate`.
  void setSampleBufferDelegate(std::weak_ptr<CaptureAudioDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue);

  /// Since the output was made.
  std::uint64_t deliveredBuffers() const;
  std::uint64_t droppedBuffers() const;

 private:
  struct Implementation;

  CaptureAudioDataOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
