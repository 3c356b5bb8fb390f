#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class CaptureVideoDataOutput;

/// Why a frame did not reach the delegate.
enum class CaptureDroppedFrameReason {
  frameWasLate,   ///< the delegate was still busy with earlier frames
  outOfBuffers,   ///< too many earlier frames are still held
  discontinuity,  ///< the device skipped it, or its data was corrupt
};

/// Receives video frames.
class TAVREL_API CaptureVideoDataOutputSampleBufferDelegate {
 public:
  virtual ~CaptureVideoDataOutputSampleBufferDelegate() = default;

  /// A frame, on the delegate's queue. Its image buffer is no longer written to and may be kept. Its presentation time
  /// is that of its capture on `CaptureClock::current()`, its duration the nominal time to the next frame.
  virtual void didOutputSampleBuffer(CaptureVideoDataOutput& /*output*/,
                                     const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/,
                                     const std::shared_ptr<CaptureConnection>& /*connection*/) {}
  /// A dropped frame, on the delegate's queue, after the frames captured before it.
  virtual void didDropSampleBuffer(CaptureVideoDataOutput& /*output*/, const SampleTiming& /*timing*/,
                                   CaptureDroppedFrameReason /*reason*/,
                                   const std::shared_ptr<CaptureConnection>& /*connection*/) {}
};

/// Delivers every frame of a session's camera, as BGRA, to a delegate. At most two frames are pending: one being
/// processed and one waiting. Without a delegate frames are discarded. Any thread.
class TAVREL_API CaptureVideoDataOutput : public CaptureOutput,
                                          public std::enable_shared_from_this<CaptureVideoDataOutput> {
 public:
  static std::shared_ptr<CaptureVideoDataOutput> create();
  ~CaptureVideoDataOutput() override;

  /// True (the default) drops a frame that arrives while two are pending and reports it as late. False allows eight and
  /// reports further ones as out of buffers. On a clock that is not real-time, the camera waits instead of dropping.
  void setAlwaysDiscardsLateVideoFrames(bool discards);

  /// `queue` must be serial. Frames still waiting for the previous delegate are discarded; a call in progress may
  /// finish after the return. nullptr for both ends delivery.
  void setSampleBufferDelegate(std::weak_ptr<CaptureVideoDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue);

  /// Counted since the output was created.
  std::uint64_t deliveredFrames() const;
  std::uint64_t droppedFrames() const;

 private:
  struct Implementation;

  CaptureVideoDataOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;
  void reportDrop(const SampleTiming& timing, CaptureDroppedFrameReason reason);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
