#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr std::int32_t kScale = CaptureClock::kTimescale;

VirtualCamera::Configuration small(std::shared_ptr<CaptureClock> clock, double frameRate = 30) {
  return {64, 48, frameRate, std::move(clock)};
}

/// What a camera delivered, in order; filled on the consumer's queue.
struct Recording {
  std::vector<std::uint32_t> numbers;
  std::vector<std::int64_t> times;

  VirtualCamera::Handler handler() {
    return [this](const std::shared_ptr<PixelBuffer>& buffer, MediaTime time) {
      numbers.push_back(VirtualPicture(buffer).counter().value_or(0xFFFFFFFF));
      times.push_back(time.value);
      EXPECT_EQ(time.timescale, kScale);
    };
  }
};

TEST(VirtualCamera, KnowsItsNamesAndLimits) {
  const auto clock = std::make_shared<FastClock>();
  EXPECT_TRUE(VirtualCamera::create("front", small(clock)).has_value());
  EXPECT_TRUE(VirtualCamera::create("back", small(clock)).has_value());
  for (const char* name : {"", "side", "file", "Front"}) {
    const auto camera = VirtualCamera::create(name, small(clock));
    ASSERT_FALSE(camera.has_value());
    EXPECT_THAT(camera.error().description, HasSubstr("front, back or file:PATH"));
  }
  EXPECT_THAT(VirtualCamera::create("file:/missing.png", small(clock)).error().description, HasSubstr("/missing.png"));
  EXPECT_THAT(VirtualCamera::create("front", {15, 48, 30, clock}).error().description, HasSubstr("16 by 16"));
  EXPECT_THAT(VirtualCamera::create("front", small(clock, 0)).error().description, HasSubstr("above 0"));
}

TEST(VirtualCamera, DeliversEveryFrameAtItsExactTimeOnAFastClock) {
  for (const double rate : {30.0, 30000.0 / 1001, 24.0}) {
    const auto clock = std::make_shared<FastClock>();
    const auto queue = DispatchQueue::create("test.camera");
    const auto camera = VirtualCamera::create("front", small(clock, rate)).value();
    Recording recording;
    const MediaTime start = clock->now();
    camera->start(recording.handler(), queue);
    EXPECT_TRUE(camera->isRunning());
    ASSERT_TRUE(clock->runFor(20));
    queue->sync([] {});
    camera->stop();
    EXPECT_FALSE(camera->isRunning());
    const auto expected = static_cast<std::size_t>(std::floor(20 * rate)) + 1;
    ASSERT_EQ(recording.times.size(), expected);
    for (std::size_t i = 0; i < expected; ++i) {
      ASSERT_EQ(recording.numbers[i], i);
      ASSERT_EQ(recording.times[i], start.value + std::llround(static_cast<double>(i) / rate * kScale));
    }
    EXPECT_EQ(camera->deliveredFrames(), expected);
    EXPECT_EQ(camera->droppedFrames(), 0U);
  }
}

TEST(VirtualCamera, PacesItselfByTheRealClock) {
  const auto queue = DispatchQueue::create("test.camera");
  const auto camera = VirtualCamera::create("back", small(CaptureClock::realTime(), 50)).value();
  Recording recording;
  std::atomic<int> early = 0;
  const auto record = recording.handler();
  camera->start(
      [&](const std::shared_ptr<PixelBuffer>& buffer, MediaTime time) {
        if (CaptureClock::realTime()->now() < time) ++early;
        record(buffer, time);
      },
      queue);
  std::this_thread::sleep_for(600ms);
  camera->stop();
  EXPECT_EQ(early, 0);
  // A loaded machine may drop frames, but every one is delivered or counted.
  const auto frames = camera->deliveredFrames() + camera->droppedFrames();
  EXPECT_GE(frames, 29U);
  EXPECT_LE(frames, 100U);
  ASSERT_GE(recording.times.size(), 3U);
  for (std::size_t i = 0; i < recording.times.size(); ++i) {
    EXPECT_EQ(recording.times[i] - recording.times[0],
              static_cast<std::int64_t>(recording.numbers[i] - recording.numbers[0]) * kScale / 50);
  }
}

TEST(VirtualCamera, DropsAndCountsWhatASlowConsumerDoesNotTake) {
  const auto queue = DispatchQueue::create("test.camera");
  const auto camera = VirtualCamera::create("front", small(CaptureClock::realTime(), 100)).value();
  DispatchSemaphore proceed(0);
  Recording recording;
  const auto record = recording.handler();
  camera->start(
      [&](const std::shared_ptr<PixelBuffer>& buffer, MediaTime time) {
        record(buffer, time);
        proceed.wait();
      },
      queue);
  while (camera->droppedFrames() < 10) std::this_thread::sleep_for(1ms);
  for (int i = 0; i < 1000; ++i) proceed.signal();
  while (camera->deliveredFrames() < 3) std::this_thread::sleep_for(1ms);
  camera->stop();
  queue->sync([] {});
  // Two were on their way; the one after them came after the gap.
  ASSERT_GE(recording.numbers.size(), 3U);
  EXPECT_EQ(recording.numbers[0] + 1, recording.numbers[1]);
  EXPECT_GT(recording.numbers[2], recording.numbers[1] + 9);
}

TEST(VirtualCamera, StopsWhileTheConsumerIsBusyAndFromItsHandler) {
  const auto clock = std::make_shared<FastClock>();
  clock->run();
  const auto queue = DispatchQueue::create("test.camera");
  const auto camera = VirtualCamera::create("front", small(clock)).value();
  std::atomic<bool> inHandler = false;
  std::atomic<int> calls = 0;
  const auto busy = [&](const std::shared_ptr<PixelBuffer>&, MediaTime) {
    inHandler = true;
    ++calls;
    std::this_thread::sleep_for(5ms);
    inHandler = false;
  };
  for (int round = 0; round < 10; ++round) {
    camera->start(busy, queue);
    std::this_thread::sleep_for(std::chrono::milliseconds(round));
    camera->stop();
    EXPECT_FALSE(inHandler);
    const int before = calls;
    queue->sync([] {});
    EXPECT_EQ(calls, before);
  }
  DispatchSemaphore stopped(0);
  std::atomic<int> ownCalls = 0;
  camera->start(
      [&](const std::shared_ptr<PixelBuffer>&, MediaTime) {
        ++ownCalls;
        camera->stop();
        stopped.signal();
      },
      queue);
  ASSERT_TRUE(stopped.wait(10s));
  queue->sync([] {});
  EXPECT_EQ(ownCalls, 1);
}

TEST(VirtualCamera, StopsWhenNobodyServesItsQueue) {
  const auto camera = VirtualCamera::create("front", small(CaptureClock::realTime(), 200)).value();
  camera->start([](const auto&, MediaTime) { ADD_FAILURE() << "the main queue does not run here"; },
                DispatchQueue::main());
  while (camera->droppedFrames() < 3) std::this_thread::sleep_for(1ms);
  camera->stop();
  EXPECT_EQ(camera->deliveredFrames(), 0U);
}

TEST(VirtualCamera, FollowsItsControlsAndFrameRate) {
  const auto clock = std::make_shared<FastClock>();
  const auto queue = DispatchQueue::create("test.camera");
  const auto camera = VirtualCamera::create("front", small(clock, 10)).value();
  Recording recording;
  std::vector<int> brightness;
  const auto record = recording.handler();
  const MediaTime start = clock->now();
  camera->start(
      [&](const std::shared_ptr<PixelBuffer>& buffer, MediaTime time) {
        record(buffer, time);
        brightness.push_back(VirtualPicture(buffer).pixel(2, 40)[1]);
      },
      queue);
  ASSERT_TRUE(clock->runFor(0.95));
  camera->setControls({1, 1, 1, 1});
  camera->setFrameRate(20);
  ASSERT_TRUE(clock->runFor(1));
  camera->stop();
  EXPECT_EQ(camera->frameRate(), 20);
  ASSERT_EQ(recording.times.size(), 10U + 20U);
  EXPECT_EQ(recording.times[9] - start.value, kScale * 9 / 10);
  EXPECT_EQ(recording.times[10] - start.value, kScale);
  EXPECT_EQ(recording.times[11] - start.value, kScale * 105LL / 100);
  EXPECT_GT(brightness[10], brightness[9] + 20);
  camera->setControls({9, 0, -1, 1e9});
  EXPECT_EQ(camera->controls().torchLevel, 1);
  EXPECT_EQ(camera->controls().zoom, 1);
  EXPECT_EQ(camera->controls().focus, 0);
}

TEST(VirtualCamera, AnotherFrameRateLeavesTheFlashOnItsSecond) {
  const auto clock = std::make_shared<FastClock>();
  const auto camera = VirtualCamera::create("front", small(clock, 30)).value();
  Recording recording;
  const MediaTime start = clock->now();
  camera->start(recording.handler(), DispatchQueue::create("test.camera"), start, 0.5);
  ASSERT_TRUE(clock->runFor(0.05));  // the frame at 0.567 s of the scene is due next
  camera->setFrameRate(25);
  ASSERT_TRUE(clock->runFor(1));
  camera->stop();
  ASSERT_GE(recording.times.size(), 25U);
  EXPECT_NEAR(static_cast<double>(recording.times[2] - start.value) / kScale, 2 / 30.0, 1e-6);
  for (std::size_t i = 3; i < recording.times.size(); ++i) {
    const double sceneTime = 0.5 + static_cast<double>(recording.times[i] - start.value) / kScale;
    EXPECT_NEAR(sceneTime * 25, std::round(sceneTime * 25), 1e-5);
    EXPECT_NEAR(sceneTime, 0.56 + 0.04 * static_cast<double>(i - 2), 1e-6);
  }
}

TEST(VirtualCamera, ReusesItsBuffers) {
  const auto clock = std::make_shared<FastClock>();
  const auto queue = DispatchQueue::create("test.camera");
  const auto camera = VirtualCamera::create("front", small(clock)).value();
  std::set<const void*> addresses;
  camera->start([&](const auto& buffer, MediaTime) { addresses.insert(VirtualPicture(buffer).pixel(0, 0)); }, queue);
  ASSERT_TRUE(clock->runFor(5));
  camera->stop();
  EXPECT_LE(addresses.size(), 3U);
}

}  // namespace
}  // namespace tavrel::test
