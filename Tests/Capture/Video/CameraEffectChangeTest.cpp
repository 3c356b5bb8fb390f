#include <unistd.h>

#include <set>

#include "Support/CameraTestSupport.h"
#include "Support/EffectsGif.h"

namespace tavrel {
namespace {

using test::CameraTest;

/// Draws with a program of its own.
class Shaded : public TavrelCaptureEffect {
 public:
  explicit Shaded(std::string blue) : blue_(std::move(blue)) {}
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Shaded>(blue_); }
  TavrelCaptureEffectNodes makeNodes(Size) override {
    const auto filter = std::make_shared<TavrelGPUImageFilter>(
        "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
        "vec4(texture2D(inputImageTexture, textureCoordinate).rg, " +
        blue_ + ", 1.0); }");
    return {.filters = {filter}, .pictures = {}};
  }

 private:
  const std::string blue_;
};

/// Notes how many programs there are when a frame comes.
class ProgramWatch : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming&) override {
    framebuffer->texture();  // drawn
    programs = TavrelGPUImageFilter::fusedProgramCount();
    ++frames;
  }

  std::atomic<std::size_t> programs = 0;
  std::atomic<int> frames = 0;
};

TEST_F(CameraTest, NoFrameWaitsForTheProgramsOfItsEffects) {
  const auto watch = std::make_shared<ProgramWatch>();
  const auto framesPass = [&] {
    const int before = watch->frames;
    return runUntil([&] { return watch->frames >= before + 3; });
  };
  // Is in use already when the next effects come.
  const auto own = std::make_shared<TavrelFilterCaptureEffect>(std::make_shared<TavrelGPUImageFilter>(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
      "texture2D(inputImageTexture, textureCoordinate).brga; }"));
  auto configuration = smallPictures();
  configuration.captureEffects = {own, std::make_shared<Shaded>("0.125")};
  // The rest is drawn the same each time.
  ASSERT_NO_FATAL_FAILURE(makeAndStart(configuration));
  camera_->setDelegate(watch);
  ASSERT_TRUE(framesPass());

  int returnsBefore = 0;
  for (const char* const blue : {"0.25", "0.375", "0.5"}) {
    const auto effect = std::make_shared<Shaded>(blue);
    const TavrelCamera::CaptureEffects wanted = {own, effect, std::make_shared<TavrelFaceBeautyCaptureEffect>(),
                                                 effect};
    const std::size_t before = TavrelGPUImageFilter::fusedProgramCount();
    camera_->setCaptureEffects(wanted);
    if (camera_->isChangingEffects()) ++returnsBefore;
    EXPECT_EQ(camera_->captureEffects(), wanted);
    ASSERT_TRUE(runUntil([&] { return !camera_->isChangingEffects(); }));
    const std::size_t prepared = TavrelGPUImageFilter::fusedProgramCount();
    ASSERT_TRUE(framesPass());
    EXPECT_EQ(watch->programs, prepared) << "none is made for a frame, after " << before;
    const char* const choice = std::getenv("TAVREL_FUSE");
    if (!choice || std::string_view(choice) != "0") {
      EXPECT_GT(prepared, before);
    }
  }
  EXPECT_GT(returnsBefore, 0) << "the setter waits for the driver's compiler";
}

TEST_F(CameraTest, TheLastOfSeveralEffectsIsUsedAndPicturesWaitForIt) {
  makeAndStart();
  for (const char* const blue : {"0.5625", "0.6875", "0.8125"}) {
    camera_->setCaptureEffects({std::make_shared<Shaded>(blue)});
  }
  std::shared_ptr<Image> still;
  std::atomic<bool> isAnswered = false;
  camera_->snapshotWithCompletion([&](std::shared_ptr<Image> image, const std::optional<Error>&) {
    still = std::move(image);
    isAnswered = true;
  });
  ASSERT_TRUE(runUntil([&] { return isAnswered.load(); }));
  ASSERT_TRUE(still);
  EXPECT_NEAR(test::pictureOf(*still).at(160, 120).b, 0.8125 * 255, 1);
  ASSERT_TRUE(nextFrame());
  EXPECT_NEAR(recorder_->picture().at(160, 120).b, 0.8125 * 255, 1);

  // One whose programs are known replaces one whose are not.
  camera_->setCaptureEffects({std::make_shared<Shaded>("0.9375")});
  camera_->setCaptureEffects({});
  EXPECT_FALSE(camera_->isChangingEffects());
  ASSERT_TRUE(nextFrame());
  EXPECT_TRUE(test::isUpright(recorder_->picture()));
}

TEST_F(CameraTest, TheFirstFrameHasItsEffectsAndWhatEndsWhileTheyChangeEnds) {
  /// Keeps the first picture.
  struct First : TavrelCameraDelegate {
    void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                    const SampleTiming&) override {
      if (isThere) return;
      framebuffer->lock();
      picture = test::pictureOf(*framebuffer->newCGImageFromFramebufferContents());
      isThere = true;
    }
    test::Picture picture;
    std::atomic<bool> isThere = false;
  };
  int number = 0;
  for (const char* const blue : {"0.0625", "0.1875", "0.3125", "0.4375"}) {
    SCOPED_TRACE(blue);
    const auto first = std::make_shared<First>();
    ASSERT_NO_FATAL_FAILURE(make());
    camera_->setDelegate(first);
    camera_->setCaptureEffects({std::make_shared<Shaded>(blue)});
    std::atomic<int> answer = -1;
    camera_->startWithCompletion([&](bool isStarted) { answer = isStarted; });
    switch (number++) {
      case 0:
        ASSERT_TRUE(runUntil([&] { return first->isThere.load(); }));
        EXPECT_NEAR(first->picture.at(160, 120).b, std::stod(blue) * 255, 1);
        break;
      case 1: camera_->stop(); break;  // while the start waits for the programs
      case 2:
        ASSERT_TRUE(runUntil([&] { return answer == 1; }));
        camera_->setCaptureEffects({std::make_shared<Shaded>("0.03125")});
        camera_->stop();
        break;
      default: break;
    }
    ASSERT_TRUE(runUntil([&] { return answer >= 0; }));
    const std::weak_ptr<TavrelCamera> watched = camera_;
    camera_.reset();
    EXPECT_TRUE(runUntil([&] { return watched.expired(); }));
  }
}

TEST_F(CameraTest, StickersMoveOnAndBlocksHearOfShownFramesOnlyWhileEffectsChange) {
  /// Notes the red and green in the middle of frames that come while effects change.
  struct Watch : TavrelCameraDelegate {
    void didGetProcessedFramebuffer(TavrelCamera& camera, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                    const SampleTiming&) override {
      ++frames;
      if (!camera.isChangingEffects()) return;
      framebuffer->lock();
      const test::Picture picture = test::pictureOf(*framebuffer->newCGImageFromFramebufferContents());
      const test::Pixel& middle = picture.at(160, 120);
      const std::lock_guard lock(mutex);
      seen.insert({middle.r > 127, middle.g > 127});
      ++framesMeanwhile;
    }
    std::mutex mutex;
    std::set<std::pair<bool, bool>> seen;
    std::atomic<int> frames = 0;
    int framesMeanwhile = 0;
  };
  const auto gif = TavrelAnimatedStickerCaptureEffect::create(test::makePlainGif(4, 4, {{.delay = 4}, {.delay = 4}}));
  ASSERT_TRUE(gif.has_value());
  (*gif)->setDestRect({{0, 0}, {320, 240}});
  std::mutex mutex;
  std::vector<MediaTime> times;
  (*gif)->filter()->setFrameProcessingCompletionBlock([&](TavrelGPUImageOutput&, MediaTime time) {
    const std::lock_guard lock(mutex);
    times.push_back(time);
  });
  auto configuration = smallPictures();
  configuration.captureEffects = {*gif};
  ASSERT_NO_FATAL_FAILURE(make(configuration));
  const auto watch = std::make_shared<Watch>();
  camera_->setDelegate(watch);
  camera_->startWithCompletion({});
  ASSERT_TRUE(runUntil([&] { return watch->frames > 3; }));

  for (int change = 0; watch->framesMeanwhile < 8 && change < 40; ++change) {
    // Of this process alone, so that no driver's cache has it.
    const auto effect = std::make_shared<Shaded>(fmt::format("0.{}{:02}", getpid(), change));
    camera_->setCaptureEffects({*gif, effect});
    ASSERT_TRUE(runUntil([&] { return !camera_->isChangingEffects(); }));
  }
  camera_->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_GE(watch->framesMeanwhile, 8) << "no frames come while effects change";
  EXPECT_GE(watch->seen.size(), 2U) << "the sticker stands still";
  const std::lock_guard lock(mutex);
  EXPECT_NEAR(static_cast<double>(times.size()), watch->frames, 2);
  for (std::size_t i = 1; i < times.size(); ++i) {
    EXPECT_LT(times[i - 1].seconds(), times[i].seconds()) << "a block hears of a frame that is not shown";
  }
  (*gif)->filter()->setFrameProcessingCompletionBlock({});
}

}  // namespace
}  // namespace tavrel
