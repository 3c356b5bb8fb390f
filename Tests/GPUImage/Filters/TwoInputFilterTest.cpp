#include <gtest/gtest.h>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::RecordingTarget;

const MediaTime kStill = MediaTime::indefinite();

MediaTime second(std::int64_t value) {
  return MediaTime::make(value, 1);
}

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

}  // namespace
}  // namespace tavrel
