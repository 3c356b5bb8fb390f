#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <vector>

#include "CameraScene.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {

/// How many different frames take turns.
constexpr int kPictures = 4;

/// What the delegate saw of the latest frame.
class Receiver : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming&) override;

  std::chrono::steady_clock::time_point start;
  bool waitsForPicture = false;
  bool readsCenter = false;
  double called = 0;  ///< milliseconds from `start`
  double drawn = 0;
  std::array<std::uint8_t, 4> pixel{};
};

class StandingClock;

/// The camera, fed by hand at the place where its device's frames arrive.
class CameraSide {
 public:
  explicit CameraSide(const Layout& layout);
  ~CameraSide();

  /// From the delivery of a frame until everything is drawn.
  void frame();

  const std::vector<std::shared_ptr<SampleBuffer>>& frames() const { return frames_; }
  std::uint64_t processed() const { return camera_->statistics().processed; }

  const std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();

 private:
  void makeFrames(Size size);

  const std::shared_ptr<StandingClock> clock_;
  const std::shared_ptr<TavrelSampleBufferDelegateProxy> proxy_ = std::make_shared<TavrelSampleBufferDelegateProxy>();
  std::shared_ptr<TavrelCamera> camera_;
  std::shared_ptr<CaptureConnection> connection_;
  std::vector<std::shared_ptr<SampleBuffer>> frames_;
  std::int64_t number_ = 0;
};

}  // namespace tavrel::benchmarks
