#pragma once

#include <linux/videodev2.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/Private/DeliveryRecord.h"
#include "Platform/Capture/V4L2/Private/V4L2Buffers.h"
#include "Platform/Capture/V4L2/Private/V4L2Controls.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"
#include "Platform/Capture/V4L2/Private/V4L2Signal.h"
#include "Platform/Graphics/PixelBufferPool.h"

namespace tavrel {

/// One camera node, by mmap streaming, with its capture thread ("tavrel.v4l2").
///
///     closed ──open──▶ S_FMT, S_PARM, REQBUFS, mmap, QBUF, STREAMON ──▶ streaming ──close──▶ STREAMOFF, munmap, closed
///                          │ fails: undone, closed                        │ ▲ new frame rate:
///                          ▼                                              ▼ │ STREAMOFF, S_PARM, QBUF, STREAMON;
///                                                                           with buffers anew where only another pixel
///                                                                           format reaches the rate, or when a digital
///                                                                           source has changed its size
///
/// Where sources choose the size, pictures have theirs, whatever was wished for.
class V4L2Driver : public CaptureDriver {
 public:
  V4L2Driver(V4L2SystemCalls calls, std::string path, CaptureDeviceDescription description,
             V4L2Capabilities capabilities);
  ~V4L2Driver() override;

  const CaptureDeviceDescription& description() const override { return description_; }
  CaptureCapabilities capabilities() const override { return capabilities_.controls(); }
  std::shared_ptr<const CaptureDeviceFormat> formatOfSize(CaptureVideoDimensions dimensions) override {
    return coveringFormat(capabilities_.modes, dimensions, capabilities_.largestZoom());
  }
  Expected<void> checkAvailable() override;
  Expected<void> open(CaptureRun run) override;
  void close() override;
  void setFrameRate(double framesPerSecond) override;
  void apply(CaptureControl control, const CaptureControls& controls) override;
  std::optional<CaptureDelivery> delivery() const override { return delivery_.get(); }

  const std::string& path() const { return path_; }

 private:
  Expected<void> prepare(const CaptureRun& run);
  Expected<void> configure(const V4L2Mode& mode, double framesPerSecond);
  Expected<void> startJpeg(const CaptureRun& run, Expected<void> refusal);
  Expected<void> chooseFormat(const V4L2Mode& mode);
  void chooseRate(double framesPerSecond);
  void recordDelivery();
  Expected<void> mapBuffers();
  Expected<void> startStream();
  bool stopStream();
  void release();
  /// What `errno` says of the camera, which did not do `what`.
  Error refused(std::string_view what) const;

  // On the capture thread.
  void loop(const std::stop_token& stop);
  std::optional<Error> dequeue();
  bool hasNewSource();
  std::optional<Error> followSource();
  std::optional<Error> changeRate(double framesPerSecond);
  void deliver(const V4L2FilledBuffer& buffer);
  void lose(std::string reason, const SampleTiming& timing);
  void reportGap(std::uint32_t sequence, const MediaTime& time);

  const V4L2SystemCalls calls_;
  const std::string path_;
  const CaptureDeviceDescription description_;
  const V4L2Capabilities capabilities_;

  std::mutex operation_;  // held by open and close
  std::mutex mutex_;      // the descriptor, for controls
  std::unique_ptr<V4L2Descriptor> node_;
  int wake_ = -1;
  std::unique_ptr<V4L2Buffers> buffers_;
  V4L2Controls controls_{capabilities_};
  V4L2Signal signal_;
  RawFrame frame_;  // all but the bytes
  std::array<std::uint32_t, 3> bytesPerRow_ = {};
  std::uint32_t pixelFormat_ = 0;
  bool takesJpegOnly_ = false;
  double frameRate_ = 30;
  std::atomic<double> wantedRate_ = 0;  // 0: as it is
  std::shared_ptr<CaptureSink> sink_;
  std::shared_ptr<PixelBufferPool> pool_;
  FrameConverter converter_;
  DeliveryRecord delivery_;
  CaptureStamps stamps_;
  std::optional<std::uint32_t> lastSequence_;
  int errorsInARow_ = 0;
  std::jthread thread_;
};

}  // namespace tavrel
