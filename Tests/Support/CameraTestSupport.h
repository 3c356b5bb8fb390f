#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Support/CaptureTestSupport.h"
#include "Support/GraphTestSupport.h"
#include "Support/LogTestSupport.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {

/// Keeps what a camera hands out.
class FrameRecorder : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming& timing) override {
    framebuffer->lock();
    const auto image = framebuffer->newCGImageFromFramebufferContents();
    const std::lock_guard lock(mutex_);
    picture_ = pictureOf(*image);
    timings_.push_back(timing);
  }
  void didTakeTapActionAtPoint(TavrelCamera&, Point point, unsigned action) override {
    taps.emplace_back(point, action);
  }

  std::vector<SampleTiming> timings() const {
    const std::lock_guard lock(mutex_);
    return timings_;
  }
  std::size_t count() const { return timings().size(); }
  /// Of the latest frame.
  Picture picture() const {
    const std::lock_guard lock(mutex_);
    return picture_;
  }

  std::vector<std::pair<Point, unsigned>> taps;  // main thread

 private:
  mutable std::mutex mutex_;
  std::vector<SampleTiming> timings_;
  Picture picture_;
};

/// The virtual devices with nothing wrong, a recorder of the log, and small pictures.
class CaptureClassTest : public ::testing::Test {
 protected:
  CaptureClassTest() {
    VirtualCaptureSystem::shared().reset();
    TavrelDDLog::addLogger(logger_);
  }
  ~CaptureClassTest() override {
    TavrelDDLog::removeLogger(logger_);
    VirtualCaptureSystem::shared().reset();
  }

  /// Lets the main thread's work happen until `done`.
  template <typename Condition>
  static bool runUntil(Condition done, std::chrono::seconds patience = std::chrono::seconds(20)) {
    return RunLoop::main().runUntil(done, patience);
  }
  static void runFor(std::chrono::milliseconds duration) { RunLoop::main().runFor(duration); }

  /// How often this text was logged.
  std::size_t logged(const std::string& text) const {
    TavrelDDLog::flushLog();
    const auto texts = logger_->texts();
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
  }

  const std::shared_ptr<RecordingLogger> logger_ = std::make_shared<RecordingLogger>();
};

class CameraTest : public CaptureClassTest {
 protected:
  static TavrelCameraConfiguration smallPictures() {
    TavrelCameraConfiguration configuration;
    configuration.size = {320, 240};
    configuration.preferredSessionPreset = "320x240";
    configuration.mirrorFrontPreview = false;
    return configuration;
  }
  ~CameraTest() override {
    if (camera_) camera_->stop();
  }

  void make(const TavrelCameraConfiguration& configuration = smallPictures()) {
    auto made = TavrelCamera::create(configuration);
    ASSERT_TRUE(made.has_value()) << made.error().description;
    camera_ = *made;
    camera_->setDelegate(recorder_);
  }
  /// Starts, and waits for the answer and a frame.
  void start() {
    std::atomic<int> answer = -1;
    camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
    ASSERT_TRUE(runUntil([&] { return answer >= 0; }));
    ASSERT_EQ(answer, 1);
    ASSERT_TRUE(nextFrame());
  }
  void makeAndStart(const TavrelCameraConfiguration& configuration = smallPictures()) {
    ASSERT_NO_FATAL_FAILURE(make(configuration));
    ASSERT_NO_FATAL_FAILURE(start());
  }
  /// Waits for a frame that was captured from now on, with the effects that were set last.
  bool nextFrame() const {
    if (!runUntil([&] { return !camera_->isChangingEffects(); })) return false;
    const std::size_t before = recorder_->count();
    // One may be on its way already.
    return runUntil([&] { return recorder_->count() >= before + 2; });
  }
  /// Whether frames come at all, as far as a quarter of a second can tell.
  bool framesStand() const {
    runFor(std::chrono::milliseconds(60));
    const std::size_t before = recorder_->count();
    runFor(std::chrono::milliseconds(250));
    return recorder_->count() == before;
  }
  std::shared_ptr<CaptureDevice> device(std::string_view identity) const {
    return CaptureDevice::deviceWithUniqueID(identity);
  }

  const std::shared_ptr<FrameRecorder> recorder_ = std::make_shared<FrameRecorder>();
  std::shared_ptr<TavrelCamera> camera_;
};

/// Whether the counter in the virtual camera's picture can be read: it stands upright and is not mirrored.
inline bool isUpright(const Picture& picture) {
  const auto pixelBuffer = pixelBufferOf(picture);
  pixelBuffer->lockBaseAddress(PixelBufferLock::readOnly);
  const auto counter = SyntheticScene::decodeFrameCounter(pixelBuffer->baseAddress(), pixelBuffer->bytesPerRow(),
                                                          picture.width, picture.height);
  pixelBuffer->unlockBaseAddress(PixelBufferLock::readOnly);
  return counter.has_value();
}

inline Picture mirrored(const Picture& picture) {
  return {picture.width, picture.height, [&](int x, int y) { return picture.at(picture.width - 1 - x, y); }};
}

}  // namespace tavrel::test
