#pragma once

#include <functional>
#include <memory>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// Takes still pictures from a running session. Any thread.
class TAVREL_API CaptureStillImageOutput : public CaptureOutput,
                                           public std::enable_shared_from_this<CaptureStillImageOutput> {
 public:
  /// Receives a sample buffer whose image buffer is rotated as the connection says, or an error.
  using Handler = std::function<void(Expected<std::shared_ptr<SampleBuffer>>)>;

  static std::shared_ptr<CaptureStillImageOutput> create();
  ~CaptureStillImageOutput() override;

  /// Takes the camera's next frame or, in flash mode `on`, the first one lit by the flash. `handler` is called exactly
  /// once, in the order of requests, on the output's own queue. Fails with `invalidConnection` if `connection` is not
  /// this output's, `notRunning` if the session is not running, `stopped` if it stops first, and `deviceSilent` if no
  /// frame arrives within five seconds.
  void captureStillImageAsynchronously(const std::shared_ptr<CaptureConnection>& connection, Handler handler);

  /// Encodes the picture as JPEG of quality 0.92. Fails with `noPicture` if the buffer holds none.
  static Expected<Data> jpegStillImageRepresentation(const std::shared_ptr<SampleBuffer>& sampleBuffer);

 private:
  struct Implementation;

  CaptureStillImageOutput();
  void deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) override;
  void deliverDrop(const SampleTiming& timing) override;
  void deliveryEnded() override;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
