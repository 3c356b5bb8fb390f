#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <future>
#include <thread>

#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

TEST(DispatchQueue, RunsBlocksInOrderOnOneNamedThread) {
  std::vector<int> order;
  std::atomic<bool> isOneThread = true;
  {
    const auto queue = DispatchQueue::create("org.tavrel.test.ordering");
    const auto thread = queue->sync([] { return std::this_thread::get_id(); });
    for (int i = 0; i < 1000; ++i) {
      queue->async([&, i] {
        order.push_back(i);
        if (std::this_thread::get_id() != thread) isOneThread = false;
      });
    }
    char name[16] = {};
    queue->sync([&] { pthread_getname_np(pthread_self(), name, sizeof name); });
    EXPECT_STREQ(name, "l.test.ordering");
    queue->async([&] { order.push_back(1000); });
  }  // destruction drains
  ASSERT_EQ(order.size(), 1001U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_TRUE(isOneThread);
}

TEST(DispatchQueue, BlocksPostedFromInsideKeepTheirPlaceAmongOthers) {
  const auto queue = DispatchQueue::create("fifo");
  std::vector<int> order;
  queue->async([&] {
    queue->async([&] { order.push_back(1); });
    std::thread([&] { queue->async([&] { order.push_back(2); }); }).join();
    queue->async([&] { order.push_back(3); });
  });
  queue->sync([] {});
  queue->sync([] {});
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(DispatchQueue, SpecificValuesBelongToTheRunningQueue) {
  static const int key = 0;
  int value = 1;
  const auto queue = DispatchQueue::create("specific");
  const auto other = DispatchQueue::create("other");
  queue->setSpecific(&key, &value);
  EXPECT_EQ(DispatchQueue::getSpecific(&key), nullptr);
  queue->sync([&] {
    EXPECT_EQ(DispatchQueue::getSpecific(&key), &value);
    EXPECT_TRUE(queue->isCurrent());
    other->sync([&] { EXPECT_EQ(DispatchQueue::getSpecific(&key), nullptr); });
  });
}

TEST(DispatchQueue, TheLastReferenceMayGoInsideItsOwnBlock) {
  std::atomic<int> ran = 0;
  std::promise<void> isAlone;
  auto queue = DispatchQueue::create("last");
  queue->async([&ran, own = queue, alone = isAlone.get_future().share()]() mutable {
    alone.wait();
    own->async([&ran] { ++ran; });
    own.reset();
    ++ran;
  });
  queue.reset();
  isAlone.set_value();
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (ran < 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(ran, 2);
}

TEST(DispatchQueue, DelayedBlocksComeLaterAndAreDroppedWithTheirQueue) {
  std::atomic<bool> ran = false;
  std::atomic<bool> ranLate = false;
  const auto start = std::chrono::steady_clock::now();
  {
    const auto queue = DispatchQueue::create("delay");
    queue->asyncAfter(20ms, [&] { ran = true; });
    queue->asyncAfter(60min, [&] { ranLate = true; });
    while (!ran) std::this_thread::sleep_for(1ms);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
  EXPECT_FALSE(ranLate);
}

TEST(DispatchQueue, AfterItsEndBlocksAreDroppedAndWaitersServed) {
  const auto queue = DispatchQueue::create("ended");
  std::atomic<int> ran = 0;
  for (int i = 0; i < 10; ++i) queue->async([&] { ++ran; });
  queue->shutDown();
  EXPECT_EQ(ran, 10);
  queue->async([&] { ++ran; });
  EXPECT_EQ(queue->sync([&] { return queue->isCurrent() ? 7 : 0; }), 7);
  EXPECT_EQ(ran, 10);
}

TEST(DispatchQueue, TheGlobalQueueRunsBlocksAtTheSameTime) {
  std::atomic<int> inside = 0;
  DispatchGroup group;
  std::atomic<bool> met = false;
  for (int i = 0; i < 2; ++i) {
    group.async(DispatchQueue::global(), [&] {
      ++inside;
      const auto deadline = std::chrono::steady_clock::now() + 10s;
      while (inside < 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
      if (inside == 2) met = true;
    });
  }
  group.wait();
  EXPECT_TRUE(met);
}

TEST(DispatchQueue, BlocksOfTheGlobalQueueMayWaitForOthersOfIt) {
  constexpr int kBlocks = 64;
  std::atomic<int> ran = 0;
  std::atomic<int> inside = 0;
  DispatchGroup group;
  const auto serial = DispatchQueue::create("serial");
  for (int i = 0; i < kBlocks; ++i) {
    group.async(DispatchQueue::global(), [&] {
      ++inside;
      std::this_thread::sleep_for(1ms);  // every thread of the pool is in such a block
      ran += DispatchQueue::global()->sync([] { return 1; });
      ran += serial->sync([] { return DispatchQueue::global()->sync([] { return 1; }); });
      EXPECT_EQ(DispatchQueue::current(), DispatchQueue::global().get());
    });
  }
  ASSERT_TRUE(group.wait(20s));
  EXPECT_EQ(ran, 2 * kBlocks);
}

TEST(DispatchQueue, TheLongestTimesAreTimesLikeOthers) {
  constexpr auto kLongest = std::chrono::nanoseconds::max();
  const auto queue = DispatchQueue::create("longest");
  std::atomic<int> tooEarly = 0;
  queue->asyncAfter(kLongest, [&] { ++tooEarly; });
  const DispatchTimer timer(queue, kLongest, [&] { ++tooEarly; });
  DispatchSemaphore semaphore(0);
  DispatchGroup group;
  group.async(queue, [] { std::this_thread::sleep_for(5ms); });
  EXPECT_TRUE(group.wait(kLongest));
  queue->async([&] {
    std::this_thread::sleep_for(5ms);
    semaphore.signal();
  });
  EXPECT_TRUE(semaphore.wait(kLongest));
  bool isDone = false;
  DispatchQueue::main()->asyncAfter(5ms, [&] { isDone = true; });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return isDone; }, kLongest));
  DispatchQueue::main()->asyncAfter(5ms, [] { RunLoop::main().stop(); });
  const auto start = std::chrono::steady_clock::now();
  RunLoop::main().runFor(kLongest);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 4ms);
  EXPECT_EQ(tooEarly, 0);
}

TEST(DispatchQueueDeathTest, WaitingForOneselfStopsTheProgram) {
  EXPECT_DEATH(
      {
        const auto queue = DispatchQueue::create("org.tavrel.self");
        queue->sync([&] { queue->sync([] {}); });
      },
      "sync called on queue \"org.tavrel.self\" from one of its own blocks");
}

TEST(DispatchGroup, TellsWhenAllIsDone) {
  DispatchGroup group;
  const auto queue = DispatchQueue::create("group");
  std::atomic<int> notified = 0;
  group.notify(queue, [&] { ++notified; });  // empty now
  queue->sync([] {});
  EXPECT_EQ(notified, 1);
  group.enter();
  group.notify(queue, [&] { ++notified; });
  EXPECT_FALSE(group.wait(5ms));
  queue->sync([] {});
  EXPECT_EQ(notified, 1);
  group.leave();
  group.wait();
  queue->sync([] {});
  EXPECT_EQ(notified, 2);
  EXPECT_DEATH(group.leave(), "Unbalanced call to DispatchGroup::leave");
}

TEST(DispatchSemaphore, CountsAcrossThreads) {
  DispatchSemaphore semaphore(1);
  EXPECT_TRUE(semaphore.tryWait());
  EXPECT_FALSE(semaphore.tryWait());
  EXPECT_FALSE(semaphore.wait(5ms));
  std::thread signaller([&] { semaphore.signal(); });
  EXPECT_TRUE(semaphore.wait(10s));
  signaller.join();
}

TEST(DispatchTimer, TicksUntilItIsCancelled) {
  const auto queue = DispatchQueue::create("timer");
  std::atomic<int> ticks = 0;
  const auto start = std::chrono::steady_clock::now();
  DispatchTimer timer(queue, 5ms, [&] { ++ticks; });
  while (ticks < 4) std::this_thread::sleep_for(1ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
  timer.cancel();
  queue->sync([] {});
  const int ticksAtCancellation = ticks;
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(ticks, ticksAtCancellation);
}

TEST(RunLoop, RunsTheMainQueue) {
  ASSERT_TRUE(RunLoop::isMainThread());
  std::vector<int> order;
  DispatchQueue::main()->asyncAfter(10ms, [&] {
    order.push_back(2);
    RunLoop::main().stop();
  });
  DispatchQueue::main()->async([&] {
    EXPECT_TRUE(DispatchQueue::main()->isCurrent());
    order.push_back(1);
  });
  RunLoop::main().run();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));

  std::thread other([] {
    EXPECT_FALSE(RunLoop::isMainThread());
    DispatchQueue::main()->sync([] { EXPECT_TRUE(RunLoop::isMainThread()); });
    RunLoop::main().stop();
  });
  RunLoop::main().runFor(10s);
  other.join();
}

TEST(RunLoop, LivesInsideAnotherLoop) {
  pollfd descriptor = {.fd = RunLoop::main().fileDescriptor(), .events = POLLIN, .revents = 0};
  RunLoop::main().drain();
  EXPECT_EQ(poll(&descriptor, 1, 0), 0);
  int ran = 0;
  DispatchQueue::main()->asyncAfter(5ms, [&] {
    ++ran;
    DispatchQueue::main()->async([&] { ++ran; });
  });
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (ran < 2 && std::chrono::steady_clock::now() < deadline) {
    ASSERT_EQ(poll(&descriptor, 1, 10000), 1);
    RunLoop::main().drain();
  }
  EXPECT_EQ(ran, 2);
}

TEST(RunLoop, DrainsWhatWaitsNowAndNotWhatComesOfIt) {
  RunLoop& loop = RunLoop::main();
  while (loop.drain() > 0) {
  }
  int ran = 0;
  std::function<void()> again = [&] {
    ++ran;
    DispatchQueue::main()->async(again);
  };
  DispatchQueue::main()->async(again);
  DispatchQueue::main()->async([&] { ran += 10; });
  EXPECT_EQ(loop.drain(), 2);
  EXPECT_EQ(ran, 11);
  pollfd descriptor = {.fd = loop.fileDescriptor(), .events = POLLIN, .revents = 0};
  EXPECT_EQ(poll(&descriptor, 1, 0), 1);
  again = [] {};
  EXPECT_EQ(loop.drain(), 1);
  EXPECT_EQ(loop.drain(), 1);
  EXPECT_EQ(loop.drain(), 0);
}

TEST(RunLoop, AStopEndsTheRunThatItMeetsAndNoOther) {
  RunLoop& loop = RunLoop::main();
  const auto waitsFull = [&] {
    const auto start = std::chrono::steady_clock::now();
    loop.runFor(20ms);
    return std::chrono::steady_clock::now() - start >= 20ms;
  };
  loop.stop();
  loop.drain();
  EXPECT_TRUE(waitsFull());
  loop.stop();
  loop.runUntil([] { return false; }, 5ms);
  EXPECT_TRUE(waitsFull());
  loop.stop();
  EXPECT_FALSE(waitsFull());  // submitted before, its turn comes inside
  bool isInnerOver = false;
  DispatchQueue::main()->async([&] {
    loop.stop();
    loop.run();
    isInnerOver = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(isInnerOver);
}

}  // namespace
}  // namespace tavrel
