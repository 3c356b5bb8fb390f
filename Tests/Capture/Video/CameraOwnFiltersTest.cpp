#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;
using test::isUpright;
using test::mirrored;
using test::Picture;

/// Counts the chains that it was in, and what it is told of a frame.
class Counted : public TavrelCaptureEffect {
 public:
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Counted>(); }
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override {
    ++chains;
    size = frameSize;
    auto filter = std::make_shared<TavrelGPUImageRotationFilter>(rotation);
    return {.filters = {filter, std::make_shared<TavrelGPUImageFilter>()}, .pictures = {}};
  }
  bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) override {
    if (property != "live") return false;
    static_cast<TavrelGPUImageRotationFilter&>(*nodes.filters.front()).setRotation(rotation);
    return true;
  }
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming&,
                                            MediaTime frameTime) override {
    ++(frameTime.isValid() ? frames : stills);
    return pixelBuffer;
  }
  void set(TavrelGPUImageRotationMode mode, std::string_view property) {
    rotation = mode;
    announceChange(property);
  }

  Size size;
  std::atomic<int> chains = 0;
  std::atomic<int> frames = 0;
  std::atomic<int> stills = 0;
  std::atomic<TavrelGPUImageRotationMode> rotation = kTavrelGPUImageNoRotation;
};

TEST_F(CameraTest, AnOwnEffectDrawsAndIsFollowed) {
  const auto effect = std::make_shared<Counted>();
  auto configuration = smallPictures();
  configuration.captureEffects = {effect};
  makeAndStart(configuration);
  EXPECT_TRUE(isUpright(recorder_->picture()));
  EXPECT_EQ(effect->chains, 1);
  EXPECT_GT(effect->frames, 0);

  effect->set(kTavrelGPUImageFlipHorizontal, "live");
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(mirrored(recorder_->picture())));
  EXPECT_EQ(effect->chains, 1) << "the same nodes";
  effect->set(kTavrelGPUImageNoRotation, "other");
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(recorder_->picture()));
  EXPECT_EQ(effect->chains, 2);

  camera_->setSize({40, 30});
  EXPECT_EQ(effect->chains, 3) << "placed anew";
  EXPECT_EQ(effect->size, (Size{40, 30}));
  std::atomic<bool> isAnswered = false;
  camera_->snapshotWithCompletion([&](const auto&, const auto&) { isAnswered = true; });
  ASSERT_TRUE(runUntil([&] { return isAnswered.load(); }));
  EXPECT_EQ(effect->stills, 1);
  camera_->setCaptureEffects({});
  effect->set(kTavrelGPUImageRotate180, "other");
  EXPECT_EQ(effect->chains, 3) << "no longer watched";
}

TEST_F(CameraTest, AnApplicationsFilterKeepsBlockRotationAndSize) {
  struct Seen {
    std::mutex mutex;
    Size size;
    std::size_t count = 0;
  } seen;
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  filter->setInputRotation(kTavrelGPUImageFlipHorizontal, 0);
  filter->forceProcessingAtSize({160, 120});
  filter->setFrameProcessingCompletionBlock([&](TavrelGPUImageOutput& output, MediaTime) {
    const std::lock_guard lock(seen.mutex);
    seen.size = output.framebufferForOutput()->size();
    ++seen.count;
  });
  for (const bool isLast : {true, false}) {
    auto configuration = smallPictures();
    configuration.blurSwitch = false;
    configuration.captureEffects = {std::make_shared<TavrelFilterCaptureEffect>(filter)};
    if (!isLast) configuration.captureEffects.push_back(std::make_shared<Counted>());
    makeAndStart(configuration);
    for (int i = 0; i < 10; ++i) {
      camera_->switchCamera();
      ASSERT_TRUE(nextFrame());
    }
    {
      const std::lock_guard lock(seen.mutex);
      EXPECT_GE(seen.count, 20U);
      EXPECT_EQ(seen.size, (Size{160, 120}));
      seen.count = 0;
    }
    EXPECT_EQ(filter->inputRotation(), kTavrelGPUImageFlipHorizontal);
    EXPECT_EQ(filter->forcedSize(), (Size{160, 120}));
    // What leaves the camera has the camera's size nevertheless.
    const Picture picture = recorder_->picture();
    EXPECT_EQ(picture.width, 320);
    EXPECT_EQ(picture.height, 240);
    EXPECT_TRUE(isUpright(mirrored(picture)));
    camera_->stop();
    camera_.reset();
    runFor(std::chrono::milliseconds(20));
  }
  // The camera has let go of it.
  EXPECT_TRUE(filter->targets().empty());
  filter->setFrameProcessingCompletionBlock({});
}

TEST_F(CameraTest, AFilterWithoutASizeOfItsOwnWorksAtTheCamerasAtTheEndOnly) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  makeAndStart();
  camera_->setCaptureEffects({std::make_shared<TavrelFilterCaptureEffect>(filter)});
  EXPECT_EQ(filter->forcedSize(), (Size{320, 240}));
  camera_->setSize({160, 120});
  EXPECT_EQ(filter->forcedSize(), (Size{160, 120}));
  camera_->setCaptureEffects({});
  EXPECT_EQ(filter->forcedSize(), Size{});
}

TEST_F(CameraTest, AFilterThatIsListedTwiceIsInTheChainOnce) {
  const auto flip = std::make_shared<TavrelFilterCaptureEffect>(
      std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipHorizontal));
  makeAndStart();
  camera_->setCaptureEffects({flip, flip});
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(isUpright(mirrored(recorder_->picture())));
}

TEST_F(CameraTest, MirrorsOfFiltersOutliveSwitches) {
  auto configuration = smallPictures();
  configuration.blurSwitch = false;
  configuration.captureEffects = {std::make_shared<TavrelFilterCaptureEffect>(
      std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipHorizontal))};
  makeAndStart(configuration);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(isUpright(mirrored(recorder_->picture())));
    camera_->switchCamera();
    ASSERT_TRUE(nextFrame());
  }
}

}  // namespace
}  // namespace tavrel
