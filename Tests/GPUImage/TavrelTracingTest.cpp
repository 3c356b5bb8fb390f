#include "GPUImage/TavrelTracing.h"

#include <gtest/gtest.h>

#include <thread>

#include "Support/GraphTestSupport.h"
#include "Support/TracingTestSupport.h"

namespace tavrel {
namespace {

using test::RecordingTarget;
using test::TraceChecker;

constexpr int kFrames = 100;

class TracingTest : public ::testing::Test {
 protected:
  ~TracingTest() override { EXPECT_TRUE(TavrelTracing::stop().has_value()); }

  void sendFrames(int count) const {
    const auto buffer = test::pixelBufferOf(test::distinctPicture(32, 16));
    for (int i = 0; i < count; ++i) ASSERT_TRUE(input_->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true));
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }

  static TavrelGraphStatistics::Node nodeNamed(const TavrelGraphStatistics& statistics, const std::string& name) {
    for (const auto& node : statistics.nodes) {
      if (node.name == name) return node;
    }
    return {};
  }

  const std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  TraceChecker trace_;
};

TEST_F(TracingTest, NodesOfAChainAreNamedCountedAndNested) {
  const auto copy = std::make_shared<TavrelGPUImageFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  const auto target = std::make_shared<RecordingTarget>();
  input_->addTarget(copy);
  copy->addTarget(blur);
  blur->addTarget(target);

  ASSERT_TRUE(TavrelTracing::start(trace_.path()).has_value());
  sendFrames(kFrames);
  const std::uint64_t createdFirst = TavrelTracing::statistics().framebuffers.created;
  sendFrames(kFrames);
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();

  EXPECT_EQ(statistics.framesIn, 2U * kFrames);
  EXPECT_EQ(statistics.nodes.size(), 4U);
  for (const char* name : {"TavrelGPUImageCVPixelBufferInput", "TavrelGPUImageFilter",
                           "TavrelGPUImageGaussianBlurFilter", "test::RecordingTarget"}) {
    const auto node = nodeNamed(statistics, name);
    EXPECT_EQ(node.queueTime.count, 2U * kFrames) << name;
    EXPECT_GT(node.queueTime.mean, 0) << name;
    EXPECT_LE(node.queueTime.p50, node.queueTime.p99) << name;
    EXPECT_LE(node.queueTime.p99, node.queueTime.max) << name;
  }
  ASSERT_EQ(statistics.waits.size(), 1U);
  EXPECT_EQ(statistics.waits[0].queue, "wait for the video-processing queue");
  EXPECT_EQ(statistics.waits[0].time.count, 2U * kFrames);
  EXPECT_GT(createdFirst, 0U);
  EXPECT_EQ(statistics.framebuffers.created, createdFirst) << "the steady state creates none";
  EXPECT_GE(statistics.framebuffers.mostHeld, 2U);

  EXPECT_EQ(trace_.ask("problems(e)"), "[]");
  EXPECT_EQ(
      trace_.ask("{x['args']['name'] for x in e if x['ph'] == 'M' and x['tid'] in {s['tid'] for s in e if s['ph'] "
                 "== 'X'}}"),
      "{'video-processing queue'}");
  // One frame's, outermost first.
  EXPECT_EQ(trace_.ask("[x['name'] for x in sorted((s for s in e if s['ph'] == 'X'), key=lambda s: s['ts'])][:4]"),
            "['TavrelGPUImageCVPixelBufferInput', 'TavrelGPUImageFilter', 'TavrelGPUImageGaussianBlurFilter', "
            "'test::RecordingTarget']");
  EXPECT_EQ(trace_.ask("len({x['args']['frame'] for x in e if x['ph'] == 'X'})"), std::to_string(2 * kFrames));
}

TEST_F(TracingTest, TheGPUsTimeFollowsTheWork) {
  const auto copy = std::make_shared<TavrelGPUImageFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  blur->setBlurRadiusInPixels(12);
  input_->addTarget(copy);
  copy->addTarget(blur);
  const auto buffer = test::pixelBufferOf(test::distinctPicture(640, 480));
  ASSERT_TRUE(TavrelTracing::start().has_value());
  const std::int64_t begin = Tracer::now();
  for (int i = 0; i < 20; ++i) input_->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const double passed = static_cast<double>(Tracer::now() - begin) / 1e9;
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  if (!statistics.hasGPUTimes) GTEST_SKIP() << "the driver lacks GL_EXT_disjoint_timer_query";
  const auto copying = nodeNamed(statistics, "TavrelGPUImageFilter").gpuTime;
  const auto blurring = nodeNamed(statistics, "TavrelGPUImageGaussianBlurFilter").gpuTime;
  // A driver's first answers may be none.
  EXPECT_GE(copying.count, 18U);
  EXPECT_GE(blurring.count, 18U);
  EXPECT_GT(blurring.p50, 3 * copying.p50);
  EXPECT_LT(blurring.mean * static_cast<double>(blurring.count), passed);
}

TEST_F(TracingTest, AFilterCountsFramesAndNotInputs) {
  class Blend : public TavrelGPUImageTwoInputFilter {
   public:
    Blend() : TavrelGPUImageTwoInputFilter(kTavrelGPUImagePassthroughFragmentShaderString) {}
  };
  const auto blend = std::make_shared<Blend>();
  const auto other = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto silent = std::make_shared<TavrelGPUImageFilter>();
  silent->setPreventRendering(true);
  input_->addTarget(blend, 0);
  input_->addTarget(silent);
  other->addTarget(blend, 1);
  const auto buffer = test::pixelBufferOf(test::distinctPicture(8, 8));
  ASSERT_TRUE(TavrelTracing::start().has_value());
  for (int i = 0; i < 10; ++i) {
    input_->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
    other->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
  }
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  std::uint64_t blended = 0;
  for (const auto& node : statistics.nodes) {
    if (node.name.ends_with("Blend")) blended = node.queueTime.count;
  }
  EXPECT_EQ(blended, 10U);
  EXPECT_EQ(nodeNamed(statistics, "TavrelGPUImageFilter").queueTime.count, 0U);
}

TEST_F(TracingTest, OffMeansThatNothingIsRecorded) {
  input_->addTarget(std::make_shared<TavrelGPUImageFilter>());
  sendFrames(3);
  EXPECT_FALSE(TavrelTracing::isOn());
  ASSERT_TRUE(TavrelTracing::start().has_value());
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  sendFrames(3);
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  EXPECT_EQ(statistics.framesIn, 0U);
  EXPECT_TRUE(statistics.nodes.empty());
  EXPECT_TRUE(statistics.waits.empty());
}

TEST_F(TracingTest, TimeInTheQueueIsSeen) {
  input_->addTarget(std::make_shared<TavrelGPUImageFilter>());
  ASSERT_TRUE(TavrelTracing::start(trace_.path()).has_value());
  TavrelRunAsynchronouslyOnVideoProcessingQueue([] { std::this_thread::sleep_for(std::chrono::milliseconds(80)); });
  sendFrames(1);
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  ASSERT_EQ(statistics.waits.size(), 1U);
  EXPECT_GT(statistics.waits[0].time.max, 0.060);
  EXPECT_EQ(trace_.ask("[x['ph'] for x in e if x.get('cat') == 'queue']"), "['b', 'e']");
  EXPECT_LT(nodeNamed(statistics, "TavrelGPUImageFilter").queueTime.max, 0.060) << "waiting is not working";
}

TEST_F(TracingTest, AnUnwritableFileIsSaidAndNothingBegins) {
  const auto started = TavrelTracing::start("/nowhere/trace.json");
  ASSERT_FALSE(started.has_value());
  EXPECT_EQ(started.error().description, "cannot write the trace /nowhere/trace.json: No such file or directory");
  EXPECT_FALSE(TavrelTracing::isOn());
}

TEST(GraphStatistics, AreWrittenForPeopleAndForPrograms) {
  TavrelGraphStatistics statistics;
  statistics.framesIn = 12;
  statistics.framesOut = 9;
  statistics.drops = {{"camera", "busy", 2}, {"camera", "late", 1}, {"writer", "queueFull", 4}};
  statistics.nodes = {{"A \"node\"", {9, 0.001, 0.0011, 0.002, 0.0025}, {}}};
  statistics.hasGPUTimes = true;
  EXPECT_EQ(statistics.dropped("camera"), 3U);
  const std::string text = statistics.description();
  EXPECT_NE(text.find("12 frames in, 0 delivered, 0 shown, 9 out"), std::string::npos) << text;
  EXPECT_NE(text.find("dropped by the camera: 2 (busy)"), std::string::npos) << text;
  EXPECT_NE(text.find("      1.00      1.10      2.00      2.50"), std::string::npos) << text;

  const TraceChecker file;
  std::ofstream(file.path()) << '[' << statistics.json() << ']';
  EXPECT_EQ(file.ask("(e[0]['framesIn'], e[0]['framesOut'], e[0]['audioLead'])"), "(12, 9, None)");
  EXPECT_EQ(file.ask("[(d['stage'], d['reason'], d['count']) for d in e[0]['drops']]"),
            "[('camera', 'busy', 2), ('camera', 'late', 1), ('writer', 'queueFull', 4)]");
  EXPECT_EQ(file.ask("(e[0]['nodes'][0]['name'], e[0]['nodes'][0]['queue']['p99'])"), "('A \"node\"', 0.002)");
}

}  // namespace
}  // namespace tavrel
