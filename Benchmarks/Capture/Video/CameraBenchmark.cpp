// The camera's whole chain against the same upload and the same draws in bare GL, in one process. A frame goes through
// crop, beauty, lookup table, a still and an animated sticker; the encoded branch is handed to the delegate, the
// preview branch is mirrored and drawn into the view.

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/UI/Screen.h"
#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/EffectsGif.h"
#include "Support/ResourceCount.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Pixels = std::vector<std::uint32_t>;

constexpr int kPictures = 4;
constexpr int kTableSide = 512;
constexpr int kStickerSide = 128;

double since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double at(std::vector<double> values, double share) {
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

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

/// The table that changes nothing.
Pixels tablePixels() {
  Pixels pixels(std::size_t{kTableSide} * kTableSide);
  for (std::uint32_t y = 0; y < kTableSide; ++y) {
    for (std::uint32_t x = 0; x < kTableSide; ++x) {
      const std::uint32_t blue = y / 64 * 8 + x / 64;
      pixels[y * kTableSide + x] = 0xff000000 | (x % 64 * 4) << 16 | (y % 64 * 4) << 8 | blue * 4;
    }
  }
  return pixels;
}

/// Opaque in its lower half, nothing above.
Pixels stickerPixels() {
  Pixels pixels(std::size_t{kStickerSide} * kStickerSide);
  std::fill(pixels.begin() + pixels.size() / 2, pixels.end(), 0xff2040c0);
  return pixels;
}

/// In red.
Pixels animationPixels() { return Pixels(std::size_t{kStickerSide} * kStickerSide, 0xffff0000); }

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

struct Layout {
  Size size;
  Rect still;
  Rect animated;

  explicit Layout(Size frame)
      : size(frame),
        still{{frame.width / 8, frame.height / 8}, {frame.width / 5, frame.height / 4}},
        animated{{frame.width / 2, frame.height / 2}, {frame.width / 5, frame.height / 4}} {}
};

/// What the delegate saw of the latest frame.
class Receiver : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming&) override {
    called = since(start);
    if (!waitsForPicture) return;
    glFinish();
    drawn = since(start);
    if (!readsCenter) return;
    framebuffer->activateFramebuffer();
    glReadPixels(static_cast<GLint>(framebuffer->size().width) / 2 + 8,
                 static_cast<GLint>(framebuffer->size().height) / 2 + 8, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
  }

  Clock::time_point start;
  bool waitsForPicture = false;
  bool readsCenter = false;
  double called = 0;  ///< milliseconds from `start`
  double drawn = 0;
  std::array<std::uint8_t, 4> pixel{};
};

/// The camera, fed by hand at the place where its device's frames arrive.
class CameraSide {
 public:
  explicit CameraSide(const Layout& layout) {
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
  ~CameraSide() {
    camera_->stop();
    VirtualCaptureSystem::shared().reset();
  }

  /// From the delivery of a frame until everything is drawn.
  void frame() {
    clock_->step();
    const auto& frame = frames_[static_cast<std::size_t>(number_++ % kPictures)];
    // As one that the device has just written.
    frame->imageBuffer()->lockBaseAddress(PixelBufferLock::readWrite);
    frame->imageBuffer()->unlockBaseAddress(PixelBufferLock::readWrite);
    receiver->start = Clock::now();
    camera_->didOutputSampleBuffer(*proxy_, frame, connection_);
    TavrelRunSynchronouslyOnVideoProcessingQueue([] { glFinish(); });
  }

  const std::vector<std::shared_ptr<SampleBuffer>>& frames() const { return frames_; }
  std::uint64_t processed() const { return camera_->statistics().processed; }

  const std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();

 private:
  static std::vector<std::shared_ptr<TavrelCaptureEffect>> effects(const Layout& layout) {
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

  void makeFrames(Size size) {
    SyntheticScene scene(SyntheticScene::Position::front);
    for (int i = 0; i < kPictures; ++i) {
      const auto buffer = PixelBuffer::create(static_cast<std::size_t>(size.width),
                                              static_cast<std::size_t>(size.height), PixelFormat::bgra32);
      require(buffer.has_value(), "PixelBuffer::create");
      VirtualFrame frame;
      frame.frameNumber = static_cast<std::uint32_t>(i);
      frame.sceneTime = i / 30.0;
      require(scene.render(**buffer, frame).has_value(), "SyntheticScene::render");
      frames_.push_back(
          SampleBuffer::createImage(*buffer, {MediaTime::make(1, 30), clock_->now(), MediaTime::invalid()}).value());
    }
  }

  const std::shared_ptr<StandingClock> clock_ = std::make_shared<StandingClock>();
  const std::shared_ptr<TavrelSampleBufferDelegateProxy> proxy_ = std::make_shared<TavrelSampleBufferDelegateProxy>();
  std::shared_ptr<TavrelCamera> camera_;
  std::shared_ptr<CaptureConnection> connection_;
  std::vector<std::shared_ptr<SampleBuffer>> frames_;
  std::int64_t number_ = 0;
};

/// The pass of a transform filter on frames of `size`.
BarePass transformPass(const AffineTransform& transform, Size size) {
  const auto aspect = static_cast<GLfloat>(size.height / size.width);
  std::array<GLfloat, 16> matrix{};
  const Transform3D full = Transform3D::makeAffine(transform);
  std::transform(full.m.begin(), full.m.end(), matrix.begin(), [](double e) { return static_cast<GLfloat>(e); });
  // The filter's quad is as high as the frame is in proportion; this one is square.
  for (std::size_t i = 4; i < 8; ++i) matrix[i] *= aspect;
  BarePass pass(kTavrelGPUImageTransformVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
  pass.setMatrix("transformMatrix", matrix);
  pass.setMatrix("orthographicMatrix", {1, 0, 0, 0, 0, 1 / aspect, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  return pass;
}

/// The same by hand; on the video-processing queue.
class BareSide {
 public:
  explicit BareSide(const Layout& layout)
      : width_(static_cast<int>(layout.size.width)), height_(static_cast<int>(layout.size.height)) {
    context_.use();
    const auto passthrough = [] {
      return BarePass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    };
    const auto twoInputs = [](const char* fragmentShader, const char* level, const BareTexture& second) {
      BarePass pass(kTavrelGPUImageTwoInputTextureVertexShaderString, fragmentShader);
      pass.setFloat(level, 1);
      pass.setSecondTexture(second);
      return pass;
    };
    frame_ = std::make_unique<BareTexture>(width_, height_);
    table_ = std::make_unique<BareTexture>(kTableSide, kTableSide, tablePixels().data());
    still_ = std::make_unique<BareTexture>(kStickerSide, kStickerSide, stickerPixels().data());
    animated_ = std::make_unique<BareTexture>(kStickerSide, kStickerSide, animation_.data());
    for (int i = 0; i < 9; ++i) targets_.emplace_back(width_, height_);
    BarePass beauty(kTavrelGPUImageVertexShaderString, kDOTGPUImageBeautyFragmentShaderString);
    beauty.setVector2("singleStepOffset", 2 / static_cast<GLfloat>(width_), 2 / static_cast<GLfloat>(height_));
    beauty.setVector4("params", 0.7F, 0.85F, 0.25F, 0.25F);
    beauty.setFloat("brightness", 0);

    const auto placed = [&](const Rect& rectangle) {
      return transformPass(TavrelGetTransform(rectangle, layout.size, 0), layout.size);
    };
    const auto blend = [&](std::size_t second) {
      return twoInputs(kTavrelGPUImageAlphaBlendFragmentShaderString, "mixturePercent", targets_[second].texture());
    };
    const auto target = [this](std::size_t index) { return &targets_[index].texture(); };
    const auto step = [this](BarePass pass, const BareTexture* input) { steps_.push_back({pass, input}); };
    step(placed(layout.still), still_.get());                                                     // 0
    step(placed(layout.animated), animated_.get());                                               // 1
    step(passthrough(), frame_.get());                                                            // 2: crop
    step(beauty, target(2));                                                                      // 3
    step(twoInputs(kTavrelGPUImageLookupFragmentShaderString, "intensity", *table_), target(3));  // 4
    step(blend(0), target(4));                                                                    // 5
    step(blend(1), target(5));                                                                    // 6: encoded
    step(transformPass(AffineTransform::makeScale(-1, 1), layout.size), target(6));               // 7
    step(passthrough(), target(7));                                                               // 8: preview
    glFinish();
    BareContext::useGraph();
  }

  void frame(const SampleBuffer& sample) {
    context_.use();
    const auto buffer = sample.imageBuffer();
    buffer->lockBaseAddress(PixelBufferLock::readOnly);
    animated_->update(animation_.data());
    frame_->update(buffer->baseAddress());
    buffer->unlockBaseAddress(PixelBufferLock::readOnly);
    for (std::size_t i = 0; i < steps_.size(); ++i) steps_[i].pass.draw(*steps_[i].input, targets_[i]);
    glFinish();
    BareContext::useGraph();
  }

  std::array<std::uint8_t, 4> encodedPixel() const {
    context_.use();
    targets_[6].bind();
    std::array<std::uint8_t, 4> pixel{};
    glReadPixels(width_ / 2 + 8, height_ / 2 + 8, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
    BareContext::useGraph();
    return pixel;
  }

 private:
  struct Step {
    BarePass pass;
    const BareTexture* input;
  };

  const int width_;
  const int height_;
  const Pixels animation_ = animationPixels();
  BareContext context_;
  std::unique_ptr<BareTexture> frame_, table_, still_, animated_;
  std::vector<BareTarget> targets_;
  std::vector<Step> steps_;
};

/// Whether both made the same picture, where all effects but the stickers' edges show.
void requireSamePicture(CameraSide& camera, BareSide& bare) {
  camera.receiver->waitsForPicture = camera.receiver->readsCenter = true;
  for (std::size_t i = 0; i < kPictures; ++i) {
    camera.frame();
    std::array<std::uint8_t, 4> limit{};
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      bare.frame(*camera.frames()[i]);
      limit = bare.encodedPixel();
    });
    require(camera.receiver->pixel == limit && limit[3] != 0, "drawing the same by hand and by the camera");
  }
  camera.receiver->waitsForPicture = camera.receiver->readsCenter = false;
}

void countResources(benchmark::State& state, CameraSide& camera, const std::function<void()>& drawBare) {
  constexpr int kFrames = 40;
  const auto perFrame = [](const std::function<void()>& frame) {
    const ResourceCount before = ResourceCount::now();
    for (int i = 0; i < kFrames; ++i) frame();
    return ResourceCount::now() - before;
  };
  const ResourceCount bare = perFrame(drawBare);
  const ResourceCount own = perFrame([&] { camera.frame(); });
  state.counters["gl_objects"] = static_cast<double>(own.glObjects) / kFrames;
  state.counters["large_buffers"] = static_cast<double>(own.largeBuffers) / kFrames;
  state.counters["limit_large_buffers"] = static_cast<double>(bare.largeBuffers) / kFrames;
}

/// From the delivery until the delegate is called, and until its picture is complete, in times of the bare draws.
void measureLatency(benchmark::State& state, CameraSide& camera, const std::function<void()>& drawBare) {
  constexpr int kFrames = 200;
  std::vector<double> bare, called, drawn;
  camera.receiver->waitsForPicture = true;
  for (int i = 0; i < kFrames; ++i) {
    const auto start = Clock::now();
    drawBare();
    bare.push_back(since(start));
    camera.frame();
    called.push_back(camera.receiver->called);
    drawn.push_back(camera.receiver->drawn);
  }
  camera.receiver->waitsForPicture = false;
  const double unit = at(bare, 0.5);
  state.counters["called_p50"] = at(called, 0.5) / unit;
  state.counters["called_p99"] = at(called, 0.99) / unit;
  state.counters["drawn_p50"] = at(drawn, 0.5) / unit;
  state.counters["drawn_p99"] = at(drawn, 0.99) / unit;
  state.counters["limit_p99"] = at(bare, 0.99) / unit;
}

void camera(benchmark::State& state) {
  const Layout layout({static_cast<double>(state.range(0)), static_cast<double>(state.range(1))});
  CameraSide camera(layout);
  std::unique_ptr<BareSide> bare;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { bare = std::make_unique<BareSide>(layout); });
  std::size_t number = 0;
  const auto drawBare = [&] {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { bare->frame(*camera.frames()[number++ % kPictures]); });
  };
  for (auto iteration : state) {
    requireSamePicture(camera, *bare);
    const std::uint64_t before = camera.processed();
    report(state, compare(31, 2, drawBare, [&] { camera.frame(); }));
    require(camera.processed() - before == 31 * 2 + 2, "taking every frame");
    countResources(state, camera, drawBare);
    measureLatency(state, camera, drawBare);
  }
}
BENCHMARK(camera)
    ->Args({640, 480})
    ->Args({1280, 720})
    ->ArgNames({"width", "height"})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
