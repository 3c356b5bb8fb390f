#include <gtest/gtest.h>

#include <future>

#include "Support/CameraTestSupport.h"
#include "Support/TracingTestSupport.h"

namespace tavrel {
namespace {

using test::TraceChecker;

class CameraTracingTest : public test::CameraTest {
 protected:
  ~CameraTracingTest() override { EXPECT_TRUE(TavrelTracing::stop().has_value()); }

  static std::uint64_t dropped(const TavrelGraphStatistics& statistics, const std::string& reason) {
    for (const auto& drop : statistics.drops) {
      if (drop.stage == "camera" && drop.reason == reason) return drop.count;
    }
    return 0;
  }
};

TEST_F(CameraTracingTest, FramesThatFindTheChainBusyAreDroppedWithThatReason) {
  const TraceChecker trace;
  ASSERT_NO_FATAL_FAILURE(make());
  ASSERT_TRUE(TavrelTracing::start(trace.path()).has_value());
  ASSERT_NO_FATAL_FAILURE(start());
  {
    std::promise<void> release;
    TavrelRunAsynchronouslyOnVideoProcessingQueue([future = release.get_future().share()] { future.wait(); });
    const std::uint64_t before = camera_->statistics().busy;
    EXPECT_TRUE(runUntil([&] { return camera_->statistics().busy >= before + 3; }));
    release.set_value();
  }
  ASSERT_TRUE(nextFrame());
  camera_->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  ASSERT_TRUE(TavrelTracing::stop().has_value());

  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  const TavrelCameraStatistics counted = camera_->statistics();
  EXPECT_GE(dropped(statistics, "busy"), 3U);
  EXPECT_EQ(dropped(statistics, "busy"), counted.busy);
  // On a busy machine the device itself falls behind, too, which the camera counts with the late ones.
  EXPECT_EQ(dropped(statistics, "late") + dropped(statistics, "discontinuity") + dropped(statistics, "outOfBuffers"),
            counted.late);
  EXPECT_EQ(dropped(statistics, "whileSwitching"), counted.whileSwitching);
  EXPECT_EQ(statistics.framesIn, counted.delivered);
  EXPECT_EQ(statistics.framesDelivered, recorder_->count());
  EXPECT_EQ(statistics.latencyToDelegate.count, recorder_->count());
  EXPECT_GT(statistics.latencyToDelegate.max, 0.060) << "one frame waited for the chain";

  EXPECT_EQ(trace.ask("problems(e)"), "[]");
  EXPECT_EQ(trace.ask("sum(x['ph'] == 'i' and x['args'] == {'stage': 'camera', 'reason': 'busy'} for x in e)"),
            std::to_string(counted.busy));
  EXPECT_EQ(trace.ask("{'video-processing queue', 'video.tavrel.videocapture'} <= {x['args']['name'] for x in e if "
                      "x['ph'] == 'M'}"),
            "True");
}

}  // namespace
}  // namespace tavrel
