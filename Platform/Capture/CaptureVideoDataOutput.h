#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

class CaptureVideoDataOutput;

/// Why a picture did not reach the delegate.
enum class CaptureDroppedFrameReason {
  frameWasLate,   ///< the delegate was still busy with earlier ones
  outOfBuffers,   ///< earlier ones are held by so many readers that there is no memory to spare
  discontinuity,  ///< the device itself left it out, or its bytes were damaged
};

/// Receives pictures.
class TAVREL_API CaptureVideoDataOutputSampleBufferDelegate {
 public:
  virtual ~CaptureVideoDataOutputSampleBufferDelegate() = default;

  /// A picture whose image buffer nobody writes to any more, on the delegate's queue. It may be kept; the device takes
  /// other memory meanwhile. Its time is that of its capture on `CaptureClock::current()`, its duration the time to the
  /// next picture at the present rate.
  virtual void didOutputSampleBuffer(CaptureVideoDataOutput& /*output*/,
                                     const std::shared_ptr<SampleBuffer>& /*sampleBuffer*/,
                                     const std::shared_ptr<CaptureConnection>& /*connection*/) {}
  /// A picture that was dropped, on the delegate's queue, after the pictures that were captured before it.
  virtual void didDropSampleBuffer(CaptureVideoDataOutput& /*output*/, const SampleTiming& /*timing*/,
                                   CaptureDroppedFrameReason /*reason*/,
                                   const std::shared_ptr<CaptureConnection>& /*connection*/) {}
};

/// Hands every picture of a session's camera, as BGRA, to a delegate. At most two pictures are on their way to it: one
/// that it works on and one that waits. Without a delegate pictures are dropped silently. Any thread.
class TAVREL_API CaptureVideoDataOutput : public CaptureOutput,
                                          public std::enable_shared_from_this<CaptureVideoDataOutput> {
 public:
  static std::shared_ptr<CaptureVideoDataOutput> create();
  ~CaptureVideoDataOutput() override;

  /// True (the default): a picture that arrives while two are on their way is dropped and reported as late. False: up
  /// to eight are kept, and then they are dropped and reported as out of buffers. On a clock that does not pass by
  /// itself the camera waits instead.
  void setAlwaysDiscardsLateVideoFrames(bool discards);

  /// `queue` must be serial. Pictures that wait for an earlier delegate are not delivered any more; a call that runs at
  /// this moment may still end after the return. nullptr for both ends the delivery.
  void setSampleBufferDelegate(std::weak_ptr<CaptureVideoDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue);

  /// Since the output was made.
  std::uint64_t deliveredFrames() const;
  std::uint64_t droppedFrames() const;

 private:
  struct Implementation;

  CaptureVideoDataOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;
  void reportDrop(const SampleTiming& timing, CaptureDroppedFrameReason reason);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
