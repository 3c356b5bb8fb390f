#include <gtest/gtest.h>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::RecordingTarget;
using Names = std::vector<std::string>;

class AudioTarget : public TavrelGPUImageAudioTarget {
 public:
  bool hasAudioTrack() const override { return hasTrack; }
  void setHasAudioTrack(bool newValue) override {
    hasTrack = newValue;
    ++changes;
  }
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>&) override {}
  bool hasTrack = false;
  int changes = 0;
};

TEST(Output, TargetsKeepTheirFirstSlotAndAreToldWhenTheyLeave) {
  const auto output = std::make_shared<TavrelGPUImageOutput>();
  const auto target = std::make_shared<RecordingTarget>();
  const auto stranger = std::make_shared<RecordingTarget>();
  target->slot = 3;
  output->addTarget(target);
  output->addTarget(target, 5);
  EXPECT_EQ(output->targets().size(), 1U);
  EXPECT_EQ(target->names(), (Names{"framebuffer"}));
  EXPECT_EQ(target->events[0].slot, 3);

  output->removeTarget(stranger);
  EXPECT_TRUE(stranger->events.empty());

  target->events.clear();
  output->removeTarget(target);
  EXPECT_EQ(target->names(), (Names{"size", "rotation 0", "end"}));
  EXPECT_TRUE(isZero(target->events[0].size));
  EXPECT_EQ(target->events[0].slot, 3);
  EXPECT_TRUE(output->targets().empty());
}

TEST(Output, RemovingAllTargetsDoesNotEndTheirProcessing) {
  const auto target = std::make_shared<RecordingTarget>();
  {
    const auto output = std::make_shared<TavrelGPUImageOutput>();
    output->addTarget(target, 1);
    target->events.clear();
    output->removeAllTargets();
    EXPECT_EQ(target->names(), (Names{"size", "rotation 0"}));
    output->addTarget(target, 2);
    target->events.clear();
  }
  EXPECT_EQ(target->names(), (Names{"size", "rotation 0"}));  // by the destructor
}

TEST(Output, MonochromeWishesAreCombinedUntilAllTargetsLeave) {
  const auto output = std::make_shared<TavrelGPUImageOutput>();
  const auto gray = std::make_shared<RecordingTarget>();
  const auto colored = std::make_shared<RecordingTarget>();
  gray->wantsMonochrome = true;
  output->addTarget(gray);
  EXPECT_TRUE(output->allTargetsWantMonochromeData());
  output->addTarget(colored);
  EXPECT_FALSE(output->allTargetsWantMonochromeData());
  output->removeTarget(colored);
  EXPECT_FALSE(output->allTargetsWantMonochromeData());
  output->removeAllTargets();
  EXPECT_TRUE(output->allTargetsWantMonochromeData());
}

TEST(Output, ATargetThatWantsNoUpdatesIsRememberedUntilItLeaves) {
  const auto output = std::make_shared<TavrelGPUImageOutput>();
  const auto target = std::make_shared<RecordingTarget>();
  target->isIgnored = true;
  output->addTarget(target);
  EXPECT_EQ(output->targetToIgnoreForUpdates(), target);
  output->removeTarget(target);
  EXPECT_EQ(output->targetToIgnoreForUpdates(), nullptr);
}

TEST(Output, AnAudioTargetIsGivenATrackOnce) {
  const auto output = std::make_shared<TavrelGPUImageOutput>();
  const auto audio = std::make_shared<AudioTarget>();
  output->setAudioEncodingTarget(audio);
  EXPECT_TRUE(audio->hasTrack);
  output->setAudioEncodingTarget(audio);
  EXPECT_EQ(audio->changes, 1);
  output->setAudioEncodingTarget(nullptr);
}

TEST(Output, ImagesOfAFilterCarryTheDevicesOrientation) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 2)));
  picture->addTarget(filter);
  const std::pair<DeviceOrientation, ImageOrientation> cases[] = {
      {DeviceOrientation::portraitUpsideDown, ImageOrientation::down},
      {DeviceOrientation::landscapeLeft, ImageOrientation::left},
      {DeviceOrientation::landscapeRight, ImageOrientation::right},
      {DeviceOrientation::portrait, ImageOrientation::up},
      {DeviceOrientation::faceUp, ImageOrientation::up},
  };
  for (const auto& [device, expected] : cases) {
    Application::shared().setDeviceOrientation(device);
    filter->useNextFrameForImageCapture();
    picture->processImage();
    const auto image = filter->imageFromCurrentFramebuffer();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->orientation(), expected);
    EXPECT_EQ(image->scale(), 1.0);
  }
  Application::shared().setDeviceOrientation(DeviceOrientation::unknown);
  EXPECT_EQ(std::make_shared<TavrelGPUImageOutput>()->imageFromCurrentFramebuffer(), nullptr);
}

TEST(Output, AFilterFiltersASingleImage) {
  const auto picture = test::distinctPicture(6, 4);
  const auto source = test::imageOf(picture)->withScaleAndOrientation(2.0, ImageOrientation::left);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto filtered = filter->imageByFilteringImage(source);
  ASSERT_NE(filtered, nullptr);
  EXPECT_EQ(filtered->scale(), 2.0);
  EXPECT_EQ(filtered->orientation(), ImageOrientation::left);
  EXPECT_EQ(test::largestDifference(test::pictureOf(*filtered), picture), 0);
}

TEST(Output, WrapModesApplyToTheCurrentOutput) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  process(test::distinctPicture(4, 4), filter);
  filter->useNextFrameForImageCapture();
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  picture->addTarget(filter);
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  ASSERT_NE(filter->framebufferForOutput(), nullptr);
  filter->setOutputTextureOptions({.wrapS = GL_MIRRORED_REPEAT, .wrapT = GL_REPEAT});
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    glBindTexture(GL_TEXTURE_2D, filter->framebufferForOutput()->texture());
    GLint wrap = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &wrap);
    EXPECT_EQ(wrap, GL_MIRRORED_REPEAT);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &wrap);
    EXPECT_EQ(wrap, GL_REPEAT);
    glBindTexture(GL_TEXTURE_2D, 0);
  });
}

}  // namespace
}  // namespace tavrel
