#include "Platform/Tracing/Tracer.h"

#include <gtest/gtest.h>

#include <thread>

#include "AllocationCount.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Tracing/QueueWait.h"
#include "Support/TracingTestSupport.h"

namespace tavrel {
namespace {

using test::TraceChecker;

class TracerTest : public ::testing::Test {
 protected:
  ~TracerTest() override { EXPECT_TRUE(Tracer::stop().has_value()); }

  static TraceSummary::Duration duration(const TraceSummary& summary, std::string_view name) {
    for (const auto& entry : summary.durations) {
      if (entry.name == name) return entry;
    }
    return {};
  }

  TraceChecker trace_;
};

TEST_F(TracerTest, RecordsNothingWhileOff) {
  ASSERT_TRUE(Tracer::start().has_value());
  ASSERT_TRUE(Tracer::stop().has_value());
  {
    const TraceSpan span(Tracer::name("unseen"));
    const QueueWait wait(FrameTrace::arriving());
    EXPECT_EQ(FrameTrace::current().number, 0U);
    const FrameTrace::Scope frame = wait.end(Tracer::name("unseen queue"));
    EXPECT_EQ(FrameTrace::current().number, 0U);
  }
  const TraceSummary summary = Tracer::summary();
  EXPECT_TRUE(summary.durations.empty());
  EXPECT_TRUE(summary.drops.empty());
  EXPECT_TRUE(summary.counts.empty());
}

TEST_F(TracerTest, FindsPercentilesOfKnownValues) {
  ASSERT_TRUE(Tracer::start().has_value());
  const TraceName name = Tracer::name("known");
  // 1 to 10 000 µs, out of order.
  for (std::int64_t i = 0; i < 10'000; ++i) Tracer::gpu(name, 0, ((i * 7919) % 10'000 + 1) * 1000);
  const auto known = duration(Tracer::summary(), "known");
  EXPECT_EQ(known.count, 10'000U);
  EXPECT_NEAR(known.mean, 5000.5e-6, 1e-9);
  EXPECT_NEAR(known.p50, 5e-3, 5e-3 * 0.017);
  EXPECT_NEAR(known.p99, 9.9e-3, 9.9e-3 * 0.017);
  EXPECT_DOUBLE_EQ(known.least, 1e-6);
  EXPECT_DOUBLE_EQ(known.most, 10e-3);

  const TraceName apart = Tracer::name("apart");
  for (const std::int64_t milliseconds : {-40, 10, -3}) Tracer::offset(apart, milliseconds * 1'000'000);
  const auto offsets = duration(Tracer::summary(), "apart");
  EXPECT_NEAR(offsets.mean, -11e-3, 1e-9);
  EXPECT_DOUBLE_EQ(offsets.least, -40e-3);
  EXPECT_DOUBLE_EQ(offsets.most, 10e-3);
  EXPECT_DOUBLE_EQ(offsets.last, -3e-3);
}

TEST_F(TracerTest, TakesInnerSpansFromOuterOnes) {
  ASSERT_TRUE(Tracer::start().has_value());
  const auto sleep = [](int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); };
  {
    const TraceSpan outer(Tracer::name("outer"));
    {
      const TraceSpan inner(Tracer::name("inner"));
      sleep(60);
    }
    sleep(5);
  }
  const TraceSummary summary = Tracer::summary();
  EXPECT_GE(duration(summary, "inner").mean, 0.060);
  EXPECT_GE(duration(summary, "outer").mean, 0.005);
  EXPECT_LT(duration(summary, "outer").mean, 0.055);
}

TEST_F(TracerTest, CountsFromManyThreadsWithoutLoss) {
  ASSERT_TRUE(Tracer::start().has_value());
  constexpr int kThreads = 4;
  constexpr int kEach = 20'000;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([] {
        const TraceName stage = Tracer::name("stage");
        const TraceName reason = Tracer::name("reason");
        for (int round = 0; round < kEach; ++round) {
          const TraceSpan span(stage);
          Tracer::drop(stage, reason);
          Tracer::count(reason);
        }
      });
    }
  }
  const TraceSummary summary = Tracer::summary();
  EXPECT_EQ(duration(summary, "stage").count, std::uint64_t{kThreads} * kEach);
  ASSERT_EQ(summary.drops.size(), 1U);
  EXPECT_EQ(summary.drops[0].stage, "stage");
  EXPECT_EQ(summary.drops[0].reason, "reason");
  EXPECT_EQ(summary.drops[0].count, std::uint64_t{kThreads} * kEach);
  ASSERT_EQ(summary.counts.size(), 1U);
  EXPECT_EQ(summary.counts[0].count, std::uint64_t{kThreads} * kEach);
}

TEST_F(TracerTest, WritesThreadsWaitsDropsAndLevels) {
  ASSERT_TRUE(Tracer::start(trace_.path()).has_value());
  const auto queue = DispatchQueue::create("org.tavrel.test.a queue with a \"name\"");
  {
    const QueueWait wait(FrameTrace::arriving());
    queue->sync([&wait] {
      const FrameTrace::Scope frame = wait.end(Tracer::name("waiting"));
      const TraceSpan outer(Tracer::name("outer \"quoted\"\n"));
      const TraceSpan inner(Tracer::name("inner"));
      Tracer::drop(Tracer::name("stage"), Tracer::name("late"));
      Tracer::level(Tracer::name("things"), 42);
    });
  }
  ASSERT_TRUE(Tracer::stop().has_value());
  EXPECT_EQ(trace_.ask("problems(e)"), "[]");
  EXPECT_EQ(trace_.ask("[x['args']['name'] for x in e if x['ph'] == 'M']"),
            "['org.tavrel.test.a queue with a \"name\"']");
  EXPECT_EQ(trace_.ask("[x['name'] for x in e if x['ph'] == 'X']"), "['inner', 'outer \"quoted\"\\n']");
  EXPECT_EQ(trace_.ask("[(x['ph'], x['name']) for x in e if x.get('cat') == 'queue']"),
            "[('b', 'waiting'), ('e', 'waiting')]");
  EXPECT_EQ(trace_.ask("len({x['args']['frame'] for x in e if x['ph'] in 'Xb'})"), "1");
  EXPECT_EQ(trace_.ask("[x['args'] for x in e if x['ph'] == 'i']"), "[{'stage': 'stage', 'reason': 'late'}]");
  EXPECT_EQ(trace_.ask("[x['args'] for x in e if x['ph'] == 'C']"), "[{'value': 42}]");
}

TEST_F(TracerTest, AllocatesNothingForAFrame) {
  ASSERT_TRUE(Tracer::start(trace_.path()).has_value());
  const TraceName name = Tracer::name("frame");
  const TraceName reason = Tracer::name("reason");
  const auto frame = [&] {
    const QueueWait wait(FrameTrace::arriving());
    const FrameTrace::Scope scope = wait.end(name);
    const TraceSpan span(name);
    Tracer::gpu(name, 0, 1);
    Tracer::latency(name, 0);
    Tracer::offset(name, 1);
    Tracer::level(name, 1);
    Tracer::count(name);
    Tracer::drop(name, reason);
  };
  frame();  // makes the thread's ring and the names' histograms
  std::uint64_t before = test::allocationsOfThisThread();
  const std::string longText(100, 'x');
  ASSERT_EQ(test::allocationsOfThisThread(), before + 1) << "nobody counts";
  before = test::allocationsOfThisThread();
  for (int i = 0; i < 2000; ++i) frame();
  EXPECT_EQ(test::allocationsOfThisThread(), before);
}

TEST_F(TracerTest, CountsEventsThatComeTooFastAndKeepsTheFileWhole) {
  ASSERT_TRUE(Tracer::start(trace_.path()).has_value());
  constexpr std::uint64_t kEvents = 100'000;
  for (std::uint64_t i = 0; i < kEvents; ++i) Tracer::level(Tracer::name("fast"), 1);
  ASSERT_TRUE(Tracer::stop().has_value());
  const std::uint64_t lost = Tracer::summary().lostEvents;
  EXPECT_EQ(trace_.ask("problems(e)"), "[]");
  const std::uint64_t written = std::stoull(trace_.ask("sum(x['ph'] == 'C' for x in e)"));
  EXPECT_EQ(written + lost, kEvents);
  EXPECT_EQ(trace_.ask("sum(x['args']['count'] for x in e if x['name'] == 'lost events')"), std::to_string(lost));
}

TEST_F(TracerTest, SaysWhatIsWrongWithTheFile) {
  const auto started = Tracer::start("/nowhere/at/all.json");
  ASSERT_FALSE(started.has_value());
  EXPECT_EQ(started.error().description, "cannot write the trace /nowhere/at/all.json: No such file or directory");
  EXPECT_FALSE(Tracer::isOn());

  ASSERT_TRUE(Tracer::start().has_value());
  EXPECT_FALSE(Tracer::start().has_value()) << "two recordings at the same time";
  ASSERT_TRUE(Tracer::stop().has_value());

  // Always full.
  ASSERT_TRUE(Tracer::start("/dev/full").has_value());
  const auto stopped = Tracer::stop();
  ASSERT_FALSE(stopped.has_value());
  EXPECT_EQ(stopped.error().description, "the trace /dev/full broke off: No space left on device");
}

TEST_F(TracerTest, BeginsAnewWithEachStart) {
  ASSERT_TRUE(Tracer::start(trace_.path()).has_value());
  Tracer::level(Tracer::name("first"), 7);
  Tracer::count(Tracer::name("first"));
  ASSERT_TRUE(Tracer::stop().has_value());
  ASSERT_TRUE(Tracer::start(trace_.path()).has_value());
  Tracer::level(Tracer::name("second"), 7);
  ASSERT_TRUE(Tracer::stop().has_value());
  EXPECT_TRUE(Tracer::summary().counts.empty());
  EXPECT_EQ(trace_.ask("[x['name'] for x in e]"), "['thread_name', 'second']");
}

}  // namespace
}  // namespace tavrel
