#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

/// A context with a framebuffer of one pixel, of which each visit draws and reads back its own colour.
class Room {
 public:
  explicit Room(std::shared_ptr<TavrelGPUImageContext> context) : context_(std::move(context)) {
    TavrelRunSynchronouslyOnContextQueue(*context_, [this] {
      context_->useAsCurrentContext();
      GLuint texture = 0;
      glGenTextures(1, &texture);
      glBindTexture(GL_TEXTURE_2D, texture);
      glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
      glGenFramebuffers(1, &framebuffer_);
      glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
      glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    });
  }

  /// Visits `rooms[depth % 2]` from inside the visit before, `depth` times, and looks around again on the way back.
  static void visit(const std::array<Room*, 2>& rooms, int depth) {
    Room& room = *rooms[static_cast<std::size_t>(depth) % 2];
    TavrelRunSynchronouslyOnContextQueue(*room.context_, [&] {
      room.context_->useAsCurrentContext();
      room.draw();
      if (depth > 0) visit(rooms, depth - 1);
      EXPECT_EQ(GLContext::current(), room.context_->context().get());
      room.draw();
    });
  }

 private:
  void draw() {
    ++visits_;  // by one thread at a time
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    glClearColor(static_cast<float>(visits_ % 256) / 255, 0, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    std::array<GLubyte, 4> pixel = {};
    glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
    EXPECT_EQ(pixel[0], visits_ % 256);
  }

  const std::shared_ptr<TavrelGPUImageContext> context_;
  GLuint framebuffer_ = 0;
  int visits_ = 0;
};

TEST(ContextLending, QueuesThatSubmitToEachOtherGetOn) {
  Room shared(TavrelGPUImageContext::sharedImageProcessingContext());
  Room first(std::make_shared<TavrelGPUImageContext>());
  Room second(std::make_shared<TavrelGPUImageContext>());
  const std::array<std::array<Room*, 2>, 6> pairs = {{{&shared, &first},
                                                      {&first, &shared},
                                                      {&first, &second},
                                                      {&second, &first},
                                                      {&second, &shared},
                                                      {&shared, &second}}};
  std::vector<std::thread> callers;
  for (const auto& pair : pairs) {
    callers.emplace_back([&pair] {
      for (int round = 0; round < 100; ++round) Room::visit(pair, round % 4);
    });
  }
  for (std::thread& caller : callers) caller.join();
}

/// Whatever a block of one context's queue waits with, another queue may use the context for what is waited for.
TEST(ContextLending, AQueueThatWaitsForAnotherLendsItsContext) {
  Room shared(TavrelGPUImageContext::sharedImageProcessingContext());
  const auto context = std::make_shared<TavrelGPUImageContext>();
  Room other(context);
  const auto& queue = context->contextQueue();
  const auto lookAround = [&] { Room::visit({&shared, &other}, 2); };
  const std::vector<std::function<void()>> waits = {[&] { queue->sync(lookAround); },
                                                    [&] {
                                                      DispatchSemaphore done(0);
                                                      queue->async([&] {
                                                        lookAround();
                                                        done.signal();
                                                      });
                                                      done.wait();
                                                    },
                                                    [&] {
                                                      DispatchGroup group;
                                                      group.async(queue, lookAround);
                                                      EXPECT_TRUE(group.wait(std::chrono::seconds(30)));
                                                    }};
  for (const auto& wait : waits) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      wait();
      EXPECT_EQ(GLContext::current(), TavrelGPUImageContext::sharedImageProcessingContext()->context().get());
    });
  }
}

TEST(ContextLending, AThreadThatAsksFirstForTheDevicesLimitsMayDoSoOnAnyQueue) {
  const auto other = std::make_shared<TavrelGPUImageContext>();
  std::thread outside([&] {
    TavrelRunSynchronouslyOnContextQueue(*other, [] { TavrelGPUImageContext::maximumTextureSizeForThisDevice(); });
  });
  TavrelRunSynchronouslyOnVideoProcessingQueue([] { TavrelGPUImageContext::maximumTextureSizeForThisDevice(); });
  outside.join();
}

TEST(ContextLending, AFramebufferIsLockedForReadingWhileTheQueueLocksItToo) {
  const auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(Size{64, 64});
  std::thread outside([&] {
    for (int round = 0; round < 200; ++round) {
      framebuffer->lockForReading();
      framebuffer->unlockAfterReading();
    }
  });
  for (int round = 0; round < 200; ++round) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      framebuffer->activateFramebuffer();
      glClear(GL_COLOR_BUFFER_BIT);
      framebuffer->lockForReading();
      framebuffer->unlockAfterReading();
    });
  }
  outside.join();
}

}  // namespace
}  // namespace tavrel
