// Which frames an animated image keeps, what it gives up when memory is short, and how long it lives.
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <thread>

#include "AnimatedImageTestSupport.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/UI/Application.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using Indexes = std::set<std::size_t>;

TEST(AnimatedImageMemory, TheSizeOfTheFramesDecidesHowManyAreKept) {
  EXPECT_EQ(makeImage(plainFrames(40), 0, 500)->frameCacheSizeOptimal(), 5U);   // 38 MB
  EXPECT_EQ(makeImage(plainFrames(4), 0, 500)->frameCacheSizeOptimal(), 4U);    // 4 MB
  EXPECT_EQ(makeImage(plainFrames(20), 0, 1000)->frameCacheSizeOptimal(), 1U);  // 76.3 MB
  EXPECT_EQ(makeImage(plainFrames(3), 0, 1000)->frameCacheSizeOptimal(), 3U);   // 11.4 MB would be 5, of 3 frames
  EXPECT_EQ(makeImage(plainFrames(10), 7)->frameCacheSizeOptimal(), 7U);
  EXPECT_EQ(makeImage(plainFrames(4), 7)->frameCacheSizeOptimal(), 4U);
  const auto image = makeImage(plainFrames(10), 7);
  image->setFrameCacheSizeMax(3);
  EXPECT_EQ(image->frameCacheSizeCurrent(), 3U);
  image->setFrameCacheSizeMax(9);
  EXPECT_EQ(image->frameCacheSizeCurrent(), 7U);
}

TEST(AnimatedImageMemory, DecodesAheadRoundTheEndAndPurgesTheRest) {
  struct Observer : TavrelAnimatedImageDebugDelegate {
    std::vector<std::size_t> requests;
    std::vector<Indexes> updates;
    void didRequestCachedFrame(TavrelAnimatedImage&, std::size_t index) override { requests.push_back(index); }
    void didUpdateCachedFrames(TavrelAnimatedImage&, const Indexes& indexes) override { updates.push_back(indexes); }
  };
  const LogCapture log;
  const auto observer = std::make_shared<Observer>();
  const auto image = makeImage(plainFrames(10), 5);
  image->setDebugDelegate(observer);
  EXPECT_EQ(image->cachedFrameIndexes(), Indexes{0}) << "the poster";
  EXPECT_EQ(image->imageLazilyCachedAtIndex(8), nullptr) << "not decoded yet";
  EXPECT_EQ(image->frameIndexesToCache(), (Indexes{8, 9, 0, 1, 2}));
  EXPECT_EQ(image->requestedFrameIndexes(), (Indexes{8, 9, 1, 2}));
  finishDecoding(*image);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{8, 9, 0, 1, 2}));
  EXPECT_EQ(lettersOf(*image->imageLazilyCachedAtIndex(8)), "ww/ww");
  EXPECT_TRUE(log.contains("Predrew frame 8 in ", Level::debug));

  image->imageLazilyCachedAtIndex(4);
  finishDecoding(*image);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{4, 5, 6, 7, 8, 0}));
  EXPECT_EQ(observer->requests, (std::vector<std::size_t>{8, 8, 4}));
  RunLoop::main().drain();
  ASSERT_FALSE(observer->updates.empty());
  EXPECT_FALSE(observer->updates.back().contains(1));

  EXPECT_EQ(image->imageLazilyCachedAtIndex(10), nullptr);
  EXPECT_TRUE(log.contains("Skipping requested frame 10 beyond bounds (total frame count: 10) for animated image: ",
                           Level::warning));
  image->setFrameCacheSizeMax(2);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{4, 5, 0}));
}

TEST(AnimatedImageMemory, PlaysEveryFrameWithinItsCache) {
  const auto image = makeImage(plainFrames(30), 4);
  for (std::size_t step = 0; step < 75; ++step) {
    const std::size_t index = step % 30;
    image->imageLazilyCachedAtIndex(index);
    finishDecoding(*image);
    const auto frame = image->imageLazilyCachedAtIndex(index);
    ASSERT_NE(frame, nullptr) << step;
    EXPECT_EQ(lettersOf(*frame).front(), "rgbwk"[index % 5]);
    ASSERT_LE(image->cachedFrameIndexes().size(), 5U) << "four and the poster";
  }
}

// A player on one thread, somebody who decodes by himself on another, one who comes and goes.
TEST(AnimatedImageMemory, ServesThreadsAtOnce) {
  const auto image = makeImage(plainFrames(20), 5, 32);
  std::thread other([&] {
    for (std::size_t i = 0; i < 60; ++i) {
      const auto frame = image->imageAtIndex(i * 7 % 20);
      ASSERT_EQ(lettersOf(*frame).front(), "rgbwk"[i * 7 % 20 % 5]);
    }
  });
  std::thread comer([&] {
    for (int i = 0; i < 10; ++i) makeImage(plainFrames(3));
  });
  for (std::size_t i = 0; i < 60; ++i) {
    image->imageLazilyCachedAtIndex(i % 20);
    RunLoop::main().runFor(1ms);
  }
  other.join();
  comer.join();
  finishDecoding(*image);
}

/// Time that a test sets: calls wait until it is moved on.
class SetTime {
 public:
  SetTime() {
    TavrelAnimatedImage::setDelayedCallScheduler([this](std::chrono::nanoseconds delay, std::function<void()> call) {
      calls_.emplace(now_ + delay, std::move(call));
    });
  }
  ~SetTime() { TavrelAnimatedImage::setDelayedCallScheduler({}); }

  void advance(std::chrono::nanoseconds duration) {
    const std::chrono::nanoseconds end = now_ + duration;
    while (!calls_.empty() && calls_.begin()->first <= end) {
      now_ = calls_.begin()->first;
      const auto call = std::move(calls_.begin()->second);
      calls_.erase(calls_.begin());
      call();
    }
    now_ = end;
  }

 private:
  std::chrono::nanoseconds now_{0};
  std::multimap<std::chrono::nanoseconds, std::function<void()>> calls_;
};

void warnOfMemory() { NotificationCenter::defaultCenter().post(kApplicationDidReceiveMemoryWarningNotification); }

TEST(AnimatedImageMemory, GrowsAgainAfterThreeMemoryWarningsButNotAfterTheFourth) {
  SetTime time;
  const LogCapture log;
  const auto image = makeImage(plainFrames(10), 5);
  image->imageLazilyCachedAtIndex(3);
  finishDecoding(*image);
  for (std::size_t warning = 1; warning <= 3; ++warning) {
    warnOfMemory();
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
    EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{3, 0}));
    time.advance(1999ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
    time.advance(1ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 2U);
    time.advance(2999ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 2U);
    if (warning == 2) continue;  // the next one comes while this reset is pending
    time.advance(1ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 0U);
    EXPECT_EQ(image->frameCacheSizeCurrent(), 5U);
  }
  EXPECT_TRUE(log.contains(
      "Attempt setting frame cache size max to 1 (previous was 2) after memory warning #3 for animated image: <",
      Level::debug));
  EXPECT_TRUE(log.contains("Grew frame cache size max to 2 after memory warning for animated image: ", Level::debug));
  EXPECT_TRUE(
      log.contains("Reset frame cache size max (current frame cache size: 5) for animated image: ", Level::debug));
  warnOfMemory();
  time.advance(1h);
  EXPECT_EQ(image->memoryWarningCount(), 4U);
  EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
}

TEST(AnimatedImageMemory, MemoryWarningsBelongToTheMainThread) {
  const auto image = makeImage(plainFrames(2));
  EXPECT_DEATH(std::thread(warnOfMemory).join(), "Received memory warning on non-main thread");
}

TEST(AnimatedImageMemory, NothingThatIsPendingKeepsAnImageAlive) {
  SetTime time;
  auto image = makeImage(plainFrames(10), 5, 200);
  const FLWeakProxy<TavrelAnimatedImage> proxy = image->weakProxy();
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::frameCount), 10U);
  warnOfMemory();
  image->setFrameCacheSizeMax(0);
  image->imageLazilyCachedAtIndex(5);
  image.reset();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !proxy.forwardingTarget(); }, 20s));
  // What is pending meets a dead image and does nothing.
  time.advance(10s);
  RunLoop::main().runFor(5ms);
  warnOfMemory();
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::frameCount), 0U);
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::posterImage), nullptr);
  proxy.forward(&TavrelAnimatedImage::setDurationPerLoop, 7);
  EXPECT_EQ(FLWeakProxy<TavrelAnimatedImage>().forward(&TavrelAnimatedImage::description), "");
}

}  // namespace
}  // namespace tavrel::test
