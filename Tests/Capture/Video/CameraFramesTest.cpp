#include <functional>
#include <future>
#include <utility>

#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;
using test::isUpright;
using test::mirrored;
using test::Picture;
using test::Pixel;
using Bench = VirtualCaptureSystem;

std::shared_ptr<Image> plainImage(int width, int height, Pixel color) {
  return test::imageOf({width, height, [color](int, int) { return color; }});
}

std::shared_ptr<TavrelImageStickerCaptureEffect> sticker(const Rect& rectangle, Pixel color) {
  auto effect = std::make_shared<TavrelImageStickerCaptureEffect>();
  effect->setImage(plainImage(8, 8, color));
  effect->setDestRect(rectangle);
  return effect;
}

bool isNear(Pixel pixel, Pixel expected) {
  return std::abs(pixel.r - expected.r) < 8 && std::abs(pixel.g - expected.g) < 8 && std::abs(pixel.b - expected.b) < 8;
}

const Pixel kRed{255, 0, 0, 255};
const Pixel kBlue{0, 0, 255, 255};
const Rect kMiddle = {{120, 100}, {80, 60}};

TEST_F(CameraTest, TheMiddleIsCutToTheAskedProportions) {
  auto configuration = smallPictures();
  configuration.size = {160, 240};
  makeAndStart(configuration);
  EXPECT_EQ(recorder_->picture().width, 160);
  EXPECT_EQ(recorder_->picture().height, 240);
  const Picture narrow = recorder_->picture();
  camera_->setSize({320, 240});
  ASSERT_TRUE(nextFrame());
  // The crop follows the frames' size and not the asked one.
  EXPECT_FALSE(isUpright(recorder_->picture()));
  camera_->setPreferredSessionPreset("640x480");
  ASSERT_TRUE(runUntil([&] { return isUpright(recorder_->picture()); }));
  EXPECT_EQ(recorder_->picture().width, 320);
}

TEST_F(CameraTest, EachBranchIsMirroredOnItsOwn) {
  makeAndStart();
  EXPECT_TRUE(isUpright(recorder_->picture()));
  camera_->setMirrorFrontPreview(true);
  EXPECT_TRUE(camera_->mirrorPreview());
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
  for (const bool previewToo : {true, false}) {
    camera_->setMirrorFrontPreview(previewToo);
    camera_->setMirrorFrontEncoded(true);
    ASSERT_TRUE(nextFrame());
    EXPECT_FALSE(isUpright(recorder_->picture()));
    EXPECT_TRUE(isUpright(mirrored(recorder_->picture())));
  }
  // The settings of the other camera do not count.
  camera_->setMirrorFrontEncoded(false);
  camera_->setMirrorBackEncoded(true);
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
}

TEST_F(CameraTest, EffectsAreAppliedInOrder) {
  const auto below = sticker(kMiddle, kRed);
  const auto above = sticker({{140, 110}, {80, 60}}, kBlue);
  makeAndStart();
  camera_->setCaptureEffects({below, above});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(130, 105), kRed));
  EXPECT_TRUE(isNear(recorder_->picture().at(150, 130), kBlue));
  camera_->setCaptureEffects({above, below});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(150, 130), kRed));
  camera_->setCaptureEffects({});
  ASSERT_TRUE(nextFrame());
  EXPECT_FALSE(isNear(recorder_->picture().at(150, 130), kRed));
  EXPECT_TRUE(isUpright(recorder_->picture()));
}

TEST_F(CameraTest, ChangesOfEffectsShowAtOnce) {
  const auto effect = sticker(kMiddle, kRed);
  auto configuration = smallPictures();
  configuration.captureEffects = {effect};
  makeAndStart(configuration);
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(160, 130), kRed));
  effect->setImage(plainImage(4, 4, kBlue));
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(160, 130), kBlue));
  effect->setDestRect({{0, 200}, {20, 20}});
  ASSERT_TRUE(nextFrame());
  EXPECT_FALSE(isNear(recorder_->picture().at(160, 130), kBlue));
  EXPECT_TRUE(isNear(recorder_->picture().at(10, 210), kBlue));
  // One that is no longer in the list is no longer watched.
  camera_->setCaptureEffects({});
  effect->setDestRect(kMiddle);
  ASSERT_TRUE(nextFrame());
  EXPECT_FALSE(isNear(recorder_->picture().at(160, 130), kBlue));
}

TEST_F(CameraTest, LevelsArePushedToTheFilterOfTheLastUse) {
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  beauty->setBeautyLevel(0);
  makeAndStart();
  const auto brightness = [&] {
    int sum = 0;
    const Picture picture = recorder_->picture();
    for (const Pixel& pixel : picture.pixels) sum += pixel.g;
    return sum / static_cast<int>(picture.pixels.size());
  };
  // The same effect twice makes two nodes.
  beauty->setBrightLevel(0.7);
  camera_->setCaptureEffects({beauty});
  ASSERT_TRUE(nextFrame());
  const int once = brightness();
  camera_->setCaptureEffects({beauty, beauty});
  ASSERT_TRUE(nextFrame());
  const int twice = brightness();
  EXPECT_GT(twice, once + 8);
  // Of two nodes the later one follows.
  beauty->setBrightLevel(0.5);
  ASSERT_TRUE(nextFrame());
  EXPECT_LT(brightness(), twice - 8);
  EXPECT_GT(brightness(), 40);
}

TEST_F(CameraTest, TablesOwnFiltersAndAnimations) {
  const auto table = std::make_shared<TavrelLUTFilterCaptureEffect>();
  table->setImage(plainImage(512, 512, kBlue));
  makeAndStart();
  camera_->setCaptureEffects({table});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(5, 5), kBlue));

  const auto own = std::make_shared<TavrelFilterCaptureEffect>();
  camera_->setCaptureEffects({own});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
  own->setFilter(std::make_shared<TavrelGPUImageFilter>(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
      "vec4(1.0, 0.0, 0.0, 1.0); }"));
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(160, 120), kRed));
}

/// Paints the frames that pass it.
class Painter : public TavrelExternalFilter {
 public:
  explicit Painter(Pixel color) : color_(color) {}
  std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                  const SampleTiming& timing) override {
    EXPECT_TRUE(timing.presentationTimeStamp.isNumeric());
    ++calls;
    seen = pixelBuffer;
    return test::pixelBufferOf({static_cast<int>(pixelBuffer->width()), static_cast<int>(pixelBuffer->height()),
                                [this](int, int) { return color_; }});
  }
  std::atomic<int> calls = 0;
  std::shared_ptr<PixelBuffer> seen;

 private:
  const Pixel color_;
};

struct RedPainter : Painter {
  RedPainter() : Painter(kRed) {}
  static std::shared_ptr<RedPainter> sharedInstance() {
    static const auto instance = std::make_shared<RedPainter>();
    return instance;
  }
};
struct BluePainter : Painter {
  BluePainter() : Painter(kBlue) {}
  static std::shared_ptr<BluePainter> sharedInstance() {
    static const auto instance = std::make_shared<BluePainter>();
    return instance;
  }
};

TEST_F(CameraTest, ExternalFiltersTakeTheirTurns) {
  const auto red = std::make_shared<TavrelExternalFilterCaptureEffect>();
  red->setExternalFilterClass(externalFilterClassOf<RedPainter>());
  const auto blue = std::make_shared<TavrelExternalFilterCaptureEffect>();
  blue->setExternalFilterClass(externalFilterClassOf<BluePainter>());
  makeAndStart();
  camera_->setCaptureEffects({red, blue, sticker(kMiddle, kRed)});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isNear(recorder_->picture().at(5, 5), kBlue));
  EXPECT_TRUE(isNear(recorder_->picture().at(160, 130), kRed));
  camera_->stop();
  // A frame may have been on its way between them.
  EXPECT_TRUE(
      runUntil([] { return RedPainter::sharedInstance()->calls == BluePainter::sharedInstance()->calls.load(); }));
}

/// Lets frames pass until it is told what to do with the next one.
struct Turnstile : TavrelExternalFilter {
  static std::shared_ptr<Turnstile> sharedInstance() {
    static const auto instance = std::make_shared<Turnstile>();
    return instance;
  }
  std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                  const SampleTiming&) override {
    if (const auto act = std::exchange(onFrame, nullptr)) act();
    return pixelBuffer;
  }
  std::function<void()> onFrame;  // on the capture queue
};

TEST_F(CameraTest, StoppedInOrDuringAFrameItHandsOutNone) {
  const auto effect = std::make_shared<TavrelExternalFilterCaptureEffect>();
  effect->setExternalFilterClass(externalFilterClassOf<Turnstile>());
  const auto turnstile = Turnstile::sharedInstance();
  for (const bool isInside : {true, false}) {
    SCOPED_TRACE(isInside ? "by the filter" : "while the filter works");
    std::promise<void> entered;
    std::promise<void> mayLeave;
    turnstile->onFrame = [&] {
      if (isInside) camera_->stop();
      entered.set_value();
      if (!isInside) mayLeave.get_future().wait();
    };
    make();
    camera_->setCaptureEffects({effect});
    camera_->startWithCompletion({});
    entered.get_future().wait();
    const std::size_t atStop = recorder_->count();
    camera_->stop();
    mayLeave.set_value();
    runFor(std::chrono::milliseconds(100));
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    EXPECT_EQ(recorder_->count(), atStop);
    EXPECT_FALSE(camera_->running());
    const TavrelCameraStatistics statistics = camera_->statistics();
    EXPECT_EQ(statistics.processed, 0U);
    turnstile->onFrame = nullptr;
    start();
    camera_->stop();
  }
}

TEST_F(CameraTest, SnapshotsAreAnsweredInOrderAndTimeless) {
  makeAndStart();
  camera_->setCaptureEffects({sticker(kMiddle, kRed)});
  std::mutex mutex;
  std::vector<int> order;
  std::vector<std::shared_ptr<Image>> images;
  for (int i = 0; i < 3; ++i) {
    camera_->snapshotWithCompletion([&, i](std::shared_ptr<Image> image, const std::optional<Error>& error) {
      EXPECT_FALSE(error.has_value());
      const std::lock_guard lock(mutex);
      order.push_back(i);
      images.push_back(std::move(image));
    });
  }
  ASSERT_TRUE(runUntil([&] {
    const std::lock_guard lock(mutex);
    return order.size() == 3;
  }));
  const Picture picture = test::pictureOf(*images.front());
  EXPECT_EQ(picture.width, 320);
  EXPECT_TRUE(isNear(picture.at(160, 130), kRed));
  EXPECT_TRUE(isUpright(picture));
  const auto timings = recorder_->timings();
  EXPECT_EQ(std::count_if(timings.begin(), timings.end(),
                          [](const SampleTiming& timing) { return !timing.presentationTimeStamp.isValid(); }),
            3);

  Bench::shared().setStillImageError(makeError(CaptureErrorCode::deviceFailed, "no film left"));
  std::atomic<bool> isAnswered = false;
  camera_->snapshotWithCompletion([&](const auto& image, const auto& error) {
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(error->description, "no film left");
    isAnswered = true;
  });
  EXPECT_TRUE(runUntil([&] { return isAnswered.load(); }));
}

TEST_F(CameraTest, TheTorchIsAsWishedAfterASnapshot) {
  makeAndStart();
  camera_->setPreferredTorchMode(CaptureTorchMode::on);
  camera_->setPreferredFlashMode(CaptureFlashMode::on);
  std::atomic<bool> isAnswered = false;
  camera_->snapshotWithCompletion([&](const auto&, const auto&) { isAnswered = true; });
  ASSERT_TRUE(runUntil([&] { return isAnswered.load(); }));
  EXPECT_EQ(camera_->torchMode(), CaptureTorchMode::on);
}

TEST_F(CameraTest, EffectsChangeFromAllSidesWhileFramesPass) {
  // Those that somebody holds between two frames.
  const auto heldFramebuffers = [] {
    std::int64_t held = 0;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
      held = TavrelGPUImageFramebuffer::ownedCount();
    });
    return held;
  };
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  const auto moving = sticker(kMiddle, kRed);
  makeAndStart();
  ASSERT_TRUE(nextFrame());
  const std::int64_t heldBefore = heldFramebuffers();
  std::mutex effectsMutex;  // the effects of a camera belong to one thread at a time
  std::jthread levels([&](const std::stop_token& stop) {
    for (int i = 0; !stop.stop_requested(); ++i) {
      {
        const std::lock_guard lock(effectsMutex);
        beauty->setBeautyLevel(i % 10 / 10.0);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (int i = 0; i < 20; ++i) {
    {
      const std::lock_guard lock(effectsMutex);
      camera_->setCaptureEffects(i % 2 == 0 ? TavrelCamera::CaptureEffects{beauty, moving}
                                            : TavrelCamera::CaptureEffects{moving, beauty, beauty});
      moving->setDestRect({{static_cast<double>(i), 0}, {30, 30}});
    }
    if (i % 5 == 0) camera_->switchCamera();
    runFor(std::chrono::milliseconds(20));
  }
  levels.request_stop();
  levels.join();
  camera_->setCaptureEffects({});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(runUntil([&] { return heldFramebuffers() <= heldBefore; })) << "all others came back";
}

}  // namespace
}  // namespace tavrel
