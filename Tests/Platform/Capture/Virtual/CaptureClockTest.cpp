#include "Platform/Capture/CaptureClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::int32_t kScale = CaptureClock::kTimescale;

double secondsSince(steady_clock::time_point start) {
  return std::chrono::duration<double>(steady_clock::now() - start).count();
}

TEST(RealTimeClock, ShowsTheWallClockInHundredMillionths) {
  const auto& clock = CaptureClock::realTime();
  const double wall = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  EXPECT_NEAR(clock->nowSeconds(), wall, 0.5);
  EXPECT_EQ(clock->now().timescale, kScale);
  EXPECT_TRUE(clock->isRealTime());
}

TEST(RealTimeClock, WaitsUntilTheTimeOrACancellation) {
  const auto& clock = CaptureClock::realTime();
  const MediaTime start = clock->now();
  EXPECT_TRUE(clock->waitUntil(start + MediaTime::make(3, 100), {}));
  EXPECT_GE((clock->now() - start).seconds(), 0.03);
  EXPECT_TRUE(clock->waitUntil(start, {}));

  std::jthread waiter(
      [&](const std::stop_token& cancel) { EXPECT_FALSE(clock->waitUntil(start + MediaTime::make(3600, 1), cancel)); });
  std::this_thread::sleep_for(20ms);
  const auto before = steady_clock::now();
  waiter.request_stop();
  waiter.join();
  EXPECT_LT(secondsSince(before), 2);
}

// Two devices of different pace, stamped into one list: nothing else keeps them in order.
TEST(FastClock, PassesTimeFromDeviceToDeviceInOrder) {
  const MediaTime start = MediaTime::make(0, kScale);
  FastClock clock(start);
  struct Event {
    std::int64_t milliseconds;
    int device;
    bool operator==(const Event&) const = default;
  };
  std::vector<Event> events;
  const auto device = [&](int number, std::int64_t step, const std::stop_token& cancel,
                          CaptureClock::Attendee attendee) {
    for (std::int64_t due = 0; clock.waitUntil(MediaTime::make(due, 1000), cancel, attendee); due += step) {
      EXPECT_EQ(clock.now(), MediaTime::make(due, 1000));
      events.push_back({due, number});
    }
    clock.detach(attendee);
  };
  const auto first = clock.attach();
  const auto second = clock.attach();
  std::jthread slow([&](const std::stop_token& cancel) { device(1, 30, cancel, first); });
  std::jthread quick([&](const std::stop_token& cancel) { device(2, 20, cancel, second); });
  const auto before = steady_clock::now();
  ASSERT_TRUE(clock.runFor(600));
  EXPECT_LT(secondsSince(before), 20);
  EXPECT_EQ(clock.now(), MediaTime::make(600, 1));
  ASSERT_EQ(events.size(), 20001U + 30001U);
  const std::vector<Event> expected = {{0, 1}, {0, 2}, {20, 2}, {30, 1}, {40, 2}, {60, 1}, {60, 2}};
  EXPECT_EQ(std::vector<Event>(events.begin(), events.begin() + 7), expected);
  EXPECT_TRUE(std::is_sorted(events.begin(), events.end(),
                             [](const Event& a, const Event& b) { return a.milliseconds < b.milliseconds; }));
  slow.request_stop();
  quick.request_stop();
}

TEST(FastClock, StandsStillUntilItRunsAndGivesUpOnADeviceThatHangs) {
  FastClock clock;
  const MediaTime start = clock.now();
  EXPECT_TRUE(clock.runFor(5));
  EXPECT_EQ(clock.now(), start + MediaTime::make(5, 1));
  const auto attendee = clock.attach();
  EXPECT_FALSE(clock.runFor(5, 20ms));
  clock.detach(attendee);
  EXPECT_EQ(clock.now(), start + MediaTime::make(5, 1));
}

}  // namespace
}  // namespace tavrel::test
