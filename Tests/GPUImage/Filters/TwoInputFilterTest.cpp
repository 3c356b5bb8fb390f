#include <gtest/gtest.h>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::RecordingTarget;

const MediaTime kStill = MediaTime::indefinite();

MediaTime second(std::int64_t value) { return MediaTime::make(value, 1); }

class TwoInputFilterTest : public ::testing::Test {
 protected:
  TwoInputFilterTest() { filter_->addTarget(target_); }

  /// Delivers a frame of 4×4 as a producer does.
  std::shared_ptr<TavrelGPUImageFramebuffer> deliver(Index slot, MediaTime time) {
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize({4, 4}, false);
      filter_->setInputSize({4, 4}, slot);
      filter_->setInputFramebuffer(framebuffer, slot);
      framebuffer->unlock();
      filter_->newFrameReadyAtTime(time, slot);
    });
    return framebuffer;
  }
  /// The times of the frames that were passed on, in seconds.
  std::vector<double> passedOn() const {
    std::vector<double> times;
    for (const auto& event : target_->events) {
      if (event.name == "frame") times.push_back(event.time.seconds());
    }
    return times;
  }

  const std::shared_ptr<TavrelGPUImageTwoInputFilter> filter_ = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  const std::shared_ptr<RecordingTarget> target_ = std::make_shared<RecordingTarget>();
};

TEST_F(TwoInputFilterTest, TwoLiveInputsAreDrawnOnceBothHaveComeWithTheTimeOfTheFirst) {
  const auto first = deliver(0, second(1));
  EXPECT_TRUE(passedOn().empty());
  EXPECT_EQ(first->framebufferReferenceCount(), 1);
  const auto other = deliver(1, second(7));
  EXPECT_EQ(passedOn(), (std::vector<double>{1}));
  EXPECT_EQ(first->framebufferReferenceCount(), 0);
  EXPECT_EQ(other->framebufferReferenceCount(), 0);
  // In the other order, and with a frame that is overtaken by the next of its producer.
  deliver(1, second(8));
  const auto overtaken = deliver(1, second(9));
  deliver(1, second(10));
  EXPECT_EQ(overtaken->framebufferReferenceCount(), 0);
  deliver(0, second(2));
  EXPECT_EQ(passedOn(), (std::vector<double>{1, 2}));
}

TEST_F(TwoInputFilterTest, AStillInputIsNeededOnceAndKept) {
  for (const Index stillSlot : {1, 0}) {
    const Index liveSlot = 1 - stillSlot;
    deliver(liveSlot, second(1));
    const auto still = deliver(stillSlot, kStill);
    deliver(liveSlot, second(2));
    deliver(liveSlot, second(3));
    EXPECT_EQ(passedOn(), (std::vector<double>{1, 2, 3})) << "still at " << stillSlot;
    // Locked until another takes its place: nobody may draw over it meanwhile.
    EXPECT_EQ(still->framebufferReferenceCount(), 1);
    const auto next = deliver(stillSlot, kStill);
    EXPECT_EQ(still->framebufferReferenceCount(), 0);
    EXPECT_EQ(next->framebufferReferenceCount(), 1);
    // Live again, so that the other order starts from two live inputs.
    deliver(stillSlot, second(5));
    deliver(liveSlot, second(5));
    EXPECT_EQ(next->framebufferReferenceCount(), 0);
    target_->events.clear();
  }
}

TEST_F(TwoInputFilterTest, ASlotThatIsNotCheckedCountsAsReady) {
  filter_->disableSecondFrameCheck();
  deliver(0, second(1));
  deliver(0, second(2));
  deliver(1, second(3));
  EXPECT_EQ(passedOn(), (std::vector<double>{1, 2}));
  deliver(0, second(4));
  EXPECT_EQ(passedOn(), (std::vector<double>{1, 2, 4}));
}

TEST_F(TwoInputFilterTest, WithoutTheFirstCheckFramesOfTheSecondPass) {
  deliver(0, second(1));
  deliver(1, second(1));
  filter_->disableFirstFrameCheck();
  deliver(1, second(2));
  EXPECT_EQ(target_->count("frame"), 2);
}

TEST_F(TwoInputFilterTest, ARemovedFirstProducerFreesItsSlot) {
  const auto first = std::make_shared<TavrelGPUImageFilter>();
  EXPECT_EQ(filter_->nextAvailableTextureIndex(), 0);
  first->addTarget(filter_);
  deliver(0, second(1));
  EXPECT_EQ(filter_->nextAvailableTextureIndex(), 1);
  first->removeTarget(filter_);
  EXPECT_EQ(filter_->nextAvailableTextureIndex(), 0);
}

TEST_F(TwoInputFilterTest, AnUpdateThatComesBackAroundALoopEnds) {
  const auto around = std::make_shared<TavrelGPUImageFilter>();
  filter_->disableSecondFrameCheck();
  around->addTarget(filter_, 1);
  filter_->addTarget(around);
  deliver(0, second(1));
  deliver(0, second(2));
  EXPECT_EQ(passedOn(), (std::vector<double>{1, 2}));
  around->removeAllTargets();
}

TEST_F(TwoInputFilterTest, TheSizeFollowsTheFirstInputAndEachSlotItsOwnRotation) {
  filter_->setInputRotation(kTavrelGPUImageRotateRight, 1);
  EXPECT_EQ(filter_->rotatedSize({3, 2}, 0), (Size{3, 2}));
  EXPECT_EQ(filter_->rotatedSize({3, 2}, 1), (Size{2, 3}));
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    filter_->setInputSize({6, 2}, 0);
    filter_->setInputSize({50, 50}, 1);
  });
  EXPECT_EQ(filter_->outputFrameSize(), (Size{6, 2}));
}

TEST_F(TwoInputFilterTest, WhilePreventedBothInputsAreReturned) {
  filter_->setPreventRendering(true);
  const auto first = deliver(0, second(1));
  const auto other = deliver(1, second(1));
  EXPECT_EQ(first->framebufferReferenceCount(), 0);
  EXPECT_EQ(other->framebufferReferenceCount(), 0);
  EXPECT_TRUE(passedOn().empty());
}

using test::Picture;
using test::Pixel;

Picture plain(int width, int height, Pixel color) {
  return {width, height, [&](int, int) { return color; }};
}

/// Gives `filter` a still at its second slot, which outlives the picture that it comes from.
void giveStill(const Picture& still, const std::shared_ptr<TavrelGPUImageFilter>& filter) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(still));
  picture->addTarget(filter, 1);
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
}

TEST(StillInputs, OutliveTheirPictures) {
  std::vector<std::shared_ptr<TavrelGPUImageAlphaBlendFilter>> blends;
  const Pixel colors[] = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}};
  for (const Pixel color : colors) {
    blends.push_back(std::make_shared<TavrelGPUImageAlphaBlendFilter>());
    blends.back()->setMix(1);
    giveStill(plain(8, 8, color), blends.back());
  }
  for (std::size_t i = 0; i < blends.size(); ++i) {
    EXPECT_EQ(process(test::distinctPicture(8, 8), blends[i]).at(3, 3), colors[i]) << i;
  }
}

TEST(StillInputs, ATableStaysWhileAnotherTableOrAStickerOfItsSizeComes) {
  // Two tables that make everything one colour, and a sticker with the size of a table.
  const auto red = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto green = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto sticker = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  sticker->setMix(1);
  giveStill(plain(512, 512, {200, 0, 0, 255}), red);
  giveStill(plain(512, 512, {0, 100, 0, 255}), green);
  giveStill(plain(512, 512, {0, 0, 50, 255}), sticker);
  const Picture source = test::distinctPicture(8, 8);
  EXPECT_EQ(process(source, red).at(1, 1), (Pixel{200, 0, 0, 255}));
  EXPECT_EQ(process(source, green).at(1, 1), (Pixel{0, 100, 0, 255}));
  EXPECT_EQ(process(source, sticker).at(1, 1), (Pixel{0, 0, 50, 255}));
}

TEST(StillInputs, GoBackToTheCacheWhenTheirFilterEnds) {
  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  for (int i = 0; i < 4; ++i) {
    const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    giveStill(plain(24, 20, {255, 0, 0, 255}), blend);
  }
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const auto before = TavrelGPUImageFramebuffer::ownedCount();
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  giveStill(plain(24, 20, {255, 0, 0, 255}), blend);
  EXPECT_EQ(TavrelGPUImageFramebuffer::ownedCount(), before);
}

TEST_F(TwoInputFilterTest, AnAbsentFrameIsDrawnTransparentBlack) {
  const auto filter = std::make_shared<TavrelGPUImageTwoInputFilter>(
      "varying highp vec2 textureCoordinate2; uniform sampler2D inputImageTexture2; void main() { gl_FragColor = "
      "texture2D(inputImageTexture2, textureCoordinate2); }");
  filter->disableSecondFrameCheck();
  EXPECT_EQ(process(test::distinctPicture(4, 4), filter).at(2, 2), (Pixel{0, 0, 0, 0}));
}

}  // namespace
}  // namespace tavrel
