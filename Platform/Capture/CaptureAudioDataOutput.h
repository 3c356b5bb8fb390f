#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class CaptureAudioDataOutput;

/// Receives audio buffers.
class TAVREL_API CaptureAudioDataOutputSampleBufferDelegate {
 public:
  virtual ~CaptureAudioDataOutputSampleBufferDelegate() = default;

  /// A buffer of PCM, on the delegate's queue. Its presentation time is that of its first sample on
  /// `CaptureClock::current()`.
  virtual void didOutputSampleBuffer(CaptureAudioDataOutput& /*output*/,
                                     const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/,
                                     const std::shared_ptr<CaptureConnection>& /*connection*/) {}
};

/// Delivers a microphone's audio to a delegate. The levels of the connection's channels are updated before each call.
/// At most 256 buffers wait for a busy delegate; further ones are dropped and counted. On a clock that is not
/// real-time, the microphone waits while 16 are pending. Any thread.
class TAVREL_API CaptureAudioDataOutput : public CaptureOutput,
                                          public std::enable_shared_from_this<CaptureAudioDataOutput> {
 public:
  static std::shared_ptr<CaptureAudioDataOutput> create();
  ~CaptureAudioDataOutput() override;

  /// See `CaptureVideoDataOutput::setSampleBufferDelegate`.
  void setSampleBufferDelegate(std::weak_ptr<CaptureAudioDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue);

  /// Counted since the output was created.
  std::uint64_t deliveredBuffers() const;
  std::uint64_t droppedBuffers() const;

 private:
  struct Implementation;

  CaptureAudioDataOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
