#pragma once

#include <functional>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// Takes single pictures out of a running session. Any thread.
class TAVREL_API CaptureStillImageOutput : public CaptureOutput,
                                           public std::enable_shared_from_this<CaptureStillImageOutput> {
 public:
  /// The picture as a sample buffer with an image buffer, turned like the connection says, or why there is none.
  using Handler = std::function<void(Expected<std::shared_ptr<SampleBuffer>>)>;

  static std::shared_ptr<CaptureStillImageOutput> create();
  ~CaptureStillImageOutput() override;

  /// Takes the next picture that the camera captures; with the device's flash mode on, the first one that is lit, and
  /// the lamp is as before afterwards. `handler` is called exactly once, on a queue of the output's own, in the order
  /// of the requests. Fails with `invalidConnection` when `connection` is not this output's, `notRunning` when the
  /// session does not run, `stopped` when it stops first, `deviceSilent` when no picture comes within five seconds.
  void captureStillImageAsynchronously(const std::shared_ptr<CaptureConnection>& connection, Handler handler);

  /// The bytes of a JPEG file, of quality 0.92. Fails with `noPicture` when the buffer holds none.
  static Expected<Data> jpegStillImageRepresentation(const std::shared_ptr<SampleBuffer>& sampleBuffer);

 private:
  struct Implementation;

  CaptureStillImageOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
