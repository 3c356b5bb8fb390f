#include "CameraSide.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/UI/Screen.h"
#include "Support/Comparison.h"
#include "Support/EffectsGif.h"

namespace tavrel::benchmarks {

using namespace std::chrono_literals;

/// Stands between frames, so that the virtual camera makes none of its own; each frame is 33 ms later than the last.
class StandingClock : public CaptureClock {
 public:
  void step() { frames_ += 1; }
  MediaTime now() const override {
    return MediaTime::make(std::int64_t{1'700'000'000} * kTimescale + frames_ * (kTimescale / 30), kTimescale);
  }
  bool waitUntil(MediaTime, const std::stop_token& cancel, Attendee) override {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait(lock, cancel, [] { return false; });
    return false;
  }
  bool isRealTime() const override { return true; }

 private:
  std::atomic<std::int64_t> frames_ = 0;
};

namespace {

std::shared_ptr<Image> imageOf(const Pixels& pixels, std::size_t side) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pixels.data());
  return Image::create(side, side, 8, 32, side * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(Data(bytes, bytes + pixels.size() * 4)));
}

/// Two red frames, which take turns: the sticker's texture is written anew for most of the camera's.
Data animation() {
  const test::GifFrameSpec frame = {.rows = std::vector(kStickerSide, std::string(kStickerSide, 'r')), .delay = 2};
  return test::makeGif(kStickerSide, kStickerSide, {frame, frame}, 0);
}

std::vector<std::shared_ptr<TavrelCaptureEffect>> effects(const Layout& layout) {
  const auto table = std::make_shared<TavrelLUTFilterCaptureEffect>();
  table->setImage(imageOf(tablePixels(), kTableSide));
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(imageOf(stickerPixels(), kStickerSide));
  sticker->setDestRect(layout.still);
  const auto animated = TavrelAnimatedStickerCaptureEffect::create(animation());
  require(animated.has_value(), "making the animated sticker");
  (*animated)->setDestRect(layout.animated);
  return {std::make_shared<TavrelFaceBeautyCaptureEffect>(), table, sticker, *animated};
}

}  // namespace

void Receiver::didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                          const SampleTiming&) {
  called = millisecondsSince(start);
  if (!waitsForPicture) return;
  glFinish();
  drawn = millisecondsSince(start);
  if (!readsCenter) return;
  framebuffer->activateFramebuffer();
  glReadPixels(static_cast<GLint>(framebuffer->size().width) / 2 + 8,
               static_cast<GLint>(framebuffer->size().height) / 2 + 8, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
}

CameraSide::CameraSide(const Layout& layout) : clock_(std::make_shared<StandingClock>()) {
  Screen::main().setMode(layout.size, 60);
  auto& bench = VirtualCaptureSystem::shared();
  bench.setClock(clock_);
  const CaptureOutput* output = nullptr;
  bench.setOutputRefusal([&](const CaptureOutput& offered) {
    if (dynamic_cast<const CaptureVideoDataOutput*>(&offered)) output = &offered;
    return false;
  });
  TavrelCameraConfiguration configuration;
  configuration.size = layout.size;
  configuration.preferredSessionPreset = layout.size.width > 640 ? "1280x720" : "640x480";
  configuration.captureEffects = effects(layout);
  auto made = TavrelCamera::create(configuration);
  bench.setOutputRefusal({});
  require(made && output, "making the camera");
  camera_ = *made;
  camera_->setDelegate(receiver);
  connection_ = output->connectionWithMediaType(MediaType::video);
  std::atomic<int> answer = -1;
  camera_->startWithCompletion([&](bool isGranted) { answer = isGranted; });
  RunLoop::main().runUntil([&] { return answer >= 0; }, 10s);
  require(answer == 1, "starting the camera");
  makeFrames(layout.size);
}

CameraSide::~CameraSide() {
  camera_->stop();
  VirtualCaptureSystem::shared().reset();
}

void CameraSide::frame() {
  clock_->step();
  const auto& frame = frames_[static_cast<std::size_t>(number_++ % kPictures)];
  // As one that the device has just written.
  frame->imageBuffer()->lockBaseAddress(PixelBufferLock::readWrite);
  frame->imageBuffer()->unlockBaseAddress(PixelBufferLock::readWrite);
  receiver->start = std::chrono::steady_clock::now();
  camera_->didOutputSampleBuffer(*proxy_, frame, connection_);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] { glFinish(); });
}

void CameraSide::makeFrames(Size size) {
  SyntheticScene scene(SyntheticScene::Position::front);
  for (int i = 0; i < kPictures; ++i) {
    const auto buffer = PixelBuffer::create(static_cast<std::size_t>(size.width), static_cast<std::size_t>(size.height),
                                            PixelFormat::bgra32);
    require(buffer.has_value(), "PixelBuffer::create");
    VirtualFrame frame;
    frame.frameNumber = static_cast<std::uint32_t>(i);
    frame.sceneTime = i / 30.0;
    require(scene.render(**buffer, frame).has_value(), "SyntheticScene::render");
    frames_.push_back(
        SampleBuffer::createImage(*buffer, {MediaTime::make(1, 30), clock_->now(), MediaTime::invalid()}).value());
  }
}

}  // namespace tavrel::benchmarks
