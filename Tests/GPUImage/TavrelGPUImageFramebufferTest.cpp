#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <thread>

#include "Platform/Foundation/Notifications.h"
#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

TavrelGPUImageFramebufferCache& cache() { return *TavrelGPUImageContext::sharedFramebufferCache(); }

class FramebufferTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cache().purgeAllUnassignedFramebuffers();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }

  static std::shared_ptr<TavrelGPUImageFramebuffer> fetch(Size size, bool onlyTexture = false) {
    return cache().fetchFramebufferForSize(size, onlyTexture);
  }
  /// The last unlock is carried out on the queue.
  static void unlockAndWait(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer) {
    framebuffer->unlock();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
};

TEST_F(FramebufferTest, KeysNameSizeOptionsAndKind) {
  const TavrelGPUTextureOptions options;
  EXPECT_EQ(cache().hashForSize({1280, 720}, options, false), "1280.0x720.0-9729:9729:33071:33071:6408:32993:5121");
  EXPECT_EQ(cache().hashForSize({1280, 720}, options, true), "1280.0x720.0-9729:9729:33071:33071:6408:32993:5121-NOFB");
  EXPECT_EQ(cache().hashForSize({100.04, 50}, options, false), cache().hashForSize({100.0, 50}, options, false));
}

TEST_F(FramebufferTest, TheLastReturnedIsFetchedFirstAndSlotsAboveAreForgotten) {
  const auto first = fetch({32, 16});
  const auto second = fetch({32, 16});
  ASSERT_NE(first, second);
  unlockAndWait(first);
  unlockAndWait(second);
  EXPECT_EQ(fetch({32, 16}), second);
  EXPECT_EQ(fetch({32, 16}), first);
  const auto third = fetch({32, 16});
  EXPECT_NE(third, first);
  EXPECT_NE(third, second);
  unlockAndWait(third);
  EXPECT_EQ(fetch({32, 16}), third);
}

TEST_F(FramebufferTest, NearbySizesShareAKeyButKindsDoNot) {
  const auto target = fetch({100.04, 50});
  unlockAndWait(target);
  EXPECT_NE(fetch({100, 50}, true), target);
  const auto reused = fetch({100, 50});
  EXPECT_EQ(reused, target);
  EXPECT_EQ(reused->size().width, 100.04);
}

TEST_F(FramebufferTest, SamplesAsItsOptionsSayWhateverItsLastUserDid) {
  const auto parameter = [](GLenum name) {
    GLint value = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, name, &value);
    return static_cast<GLenum>(value);
  };
  for (const bool onlyTexture : {true, false}) {
    const auto framebuffer = fetch({16, 16}, onlyTexture);
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      glBindTexture(GL_TEXTURE_2D, framebuffer->texture());
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    });
    unlockAndWait(framebuffer);
    ASSERT_EQ(fetch({16, 16}, onlyTexture), framebuffer);
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      glBindTexture(GL_TEXTURE_2D, framebuffer->texture());
      EXPECT_EQ(parameter(GL_TEXTURE_MIN_FILTER), static_cast<GLenum>(GL_LINEAR));
      EXPECT_EQ(parameter(GL_TEXTURE_MAG_FILTER), static_cast<GLenum>(GL_LINEAR));
      EXPECT_EQ(parameter(GL_TEXTURE_WRAP_S), static_cast<GLenum>(GL_CLAMP_TO_EDGE));
      EXPECT_EQ(parameter(GL_TEXTURE_WRAP_T), static_cast<GLenum>(GL_CLAMP_TO_EDGE));
    });
  }
}

TEST_F(FramebufferTest, ReturnedTexturesAreSpoiledOnDemand) {
  if (std::getenv("TAVREL_DEBUG") == nullptr) GTEST_SKIP() << "TAVREL_DEBUG=textures is not set";
  const auto framebuffer = fetch({4, 4});
  unlockAndWait(framebuffer);
  ASSERT_EQ(fetch({4, 4}), framebuffer);
  std::array<std::uint8_t, 4> rgba{};
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    framebuffer->activateFramebuffer();
    glReadPixels(2, 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
  });
  EXPECT_EQ(rgba, (std::array<std::uint8_t, 4>{255, 0, 255, 255}));
}

TEST_F(FramebufferTest, BytesWrittenUnderALockAreDrawn) {
  if (!TavrelGPUImageContext::supportsFastTextureUpload()) GTEST_SKIP() << "plain textures have no bytes";
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto framebuffer = fetch({6, 4});
  EXPECT_FALSE(framebuffer->renderTarget()->sharesMemory());
  for (const std::uint8_t level : {50, 200}) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      framebuffer->activateFramebuffer();
      glClearColor(1, 1, 1, 1);
      glClear(GL_COLOR_BUFFER_BIT);
    });
    framebuffer->lockForReading();
    std::fill_n(framebuffer->byteBuffer(), framebuffer->bytesPerRow() * 4, level);
    framebuffer->unlockAfterReading();
    std::shared_ptr<Image> image;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      filter->useNextFrameForImageCapture();
      framebuffer->lock();
      filter->setInputSize({6, 4}, 0);
      filter->setInputFramebuffer(framebuffer, 0);
      filter->newFrameReadyAtTime(MediaTime::make(0, 30), 0);
      image = filter->newCGImageFromCurrentlyProcessedOutput();
    });
    EXPECT_EQ(test::pictureOf(*image).at(3, 2), (test::Pixel{level, level, level, level}));
  }
}

TEST_F(FramebufferTest, ACacheThatIsGoneLeavesNothingToItsQueuedWork) {
  auto own = std::make_unique<TavrelGPUImageFramebufferCache>();
  const auto framebuffer = own->fetchFramebufferForSize({8, 8}, false);
  const std::weak_ptr<TavrelGPUImageFramebuffer> watched = framebuffer;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    // From another thread, so that the work is queued behind this block.
    std::thread([&] {
      own->returnFramebufferToCache(framebuffer);
      own->purgeAllUnassignedFramebuffers();
      own.reset();
    }).join();
  });
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(watched.use_count(), 1);
}

TEST_F(FramebufferTest, ReadersLocksAreCountedAndPurgingLeavesLockedOnesAlone) {
  const auto framebuffer = fetch({8, 8});
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 1);
  framebuffer->lock();
  framebuffer->unlock();
  cache().purgeAllUnassignedFramebuffers();
  unlockAndWait(framebuffer);
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 0);
  EXPECT_EQ(fetch({8, 8}), framebuffer);

  unlockAndWait(framebuffer);
  cache().purgeAllUnassignedFramebuffers();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_NE(fetch({8, 8}), framebuffer);
}

TEST_F(FramebufferTest, AMemoryWarningPurges) {
  std::weak_ptr<TavrelGPUImageFramebuffer> idle;
  {
    const auto framebuffer = fetch({24, 8});
    idle = framebuffer;
    unlockAndWait(framebuffer);
  }
  EXPECT_FALSE(idle.expired());
  NotificationCenter::defaultCenter().post(kApplicationDidReceiveMemoryWarningNotification);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_TRUE(idle.expired());
}

TEST_F(FramebufferTest, UncountedFramebuffersStayWithTheirOwner) {
  const auto framebuffer = fetch({8, 4});
  framebuffer->disableReferenceCounting();
  framebuffer->unlock();
  framebuffer->unlock();
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 1);
  EXPECT_NE(fetch({8, 4}), framebuffer);
  framebuffer->enableReferenceCounting();
  unlockAndWait(framebuffer);
  EXPECT_EQ(fetch({8, 4}), framebuffer);
}

TEST_F(FramebufferTest, ABorrowedTextureSurvivesItsFramebuffer) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {
    TavrelGPUImageContext::useImageProcessingContext();
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    {
      const auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(Size{4, 4}, texture);
      EXPECT_FALSE(framebuffer->missingFramebuffer());
      framebuffer->lock();
      framebuffer->unlock();
      framebuffer->unlock();
    }
    EXPECT_TRUE(glIsTexture(texture));
    glDeleteTextures(1, &texture);
  });
}

// The movie writer's queue may drop the last reference while the processing queue draws.
TEST_F(FramebufferTest, DestructionOnAnotherContextsQueueLeavesThatContextAlone) {
  const auto other = std::make_shared<TavrelGPUImageContext>();
  other->useSharegroup(TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup());
  auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(Size{4, 4});
  TavrelRunSynchronouslyOnContextQueue(*other, [&] {
    other->useAsCurrentContext();
    GLuint names[8] = {};
    glGenFramebuffers(8, names);
    for (const GLuint name : names) glBindFramebuffer(GL_FRAMEBUFFER, name);
    framebuffer.reset();
    EXPECT_EQ(GLContext::current(), other->context().get());
    for (const GLuint name : names) EXPECT_TRUE(glIsFramebuffer(name));
    glDeleteFramebuffers(8, names);
  });
}

TEST_F(FramebufferTest, ContentsBecomeAnImageThatHoldsTheFramebuffer) {
  const bool isFast = TavrelGPUImageContext::supportsFastTextureUpload();
  auto framebuffer = fetch({5, 3});
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    framebuffer->activateFramebuffer();
    glClearColor(1, 0.4F, 0.2F, 0.6F);
    glClear(GL_COLOR_BUFFER_BIT);
  });
  auto image = framebuffer->newCGImageFromFramebufferContents();
  EXPECT_EQ(image->bitmapInfo(), isFast ? 0x2002U : 3U);
  EXPECT_EQ(test::largestDifference(test::pictureOf(*image), {5, 3,
                                                              [](int, int) {
                                                                return test::Pixel{255, 102, 51, 153};
                                                              }}),
            0);
  // With bytes of its own the image needs the framebuffer no more.
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), isFast ? 1 : 0);
  EXPECT_EQ(framebuffer->readLockCount(), isFast ? 1U : 0U);
  image.reset();
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 0);
  EXPECT_EQ(framebuffer->readLockCount(), 0U);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(fetch({5, 3}), framebuffer);
}

TEST_F(FramebufferTest, BytesAreThereOnTheFastPathOnly) {
  const auto framebuffer = fetch({3, 2});
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    framebuffer->activateFramebuffer();
    glClearColor(0, 0, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
  });
  if (!TavrelGPUImageContext::supportsFastTextureUpload()) {
    EXPECT_EQ(framebuffer->byteBuffer(), nullptr);
    EXPECT_EQ(framebuffer->pixelBuffer(), nullptr);
    EXPECT_EQ(framebuffer->bytesPerRow(), 12U);
    return;
  }
  EXPECT_EQ(framebuffer->pixelBuffer(), framebuffer->renderTarget());
  const std::uint8_t* const lastPixel = framebuffer->byteBuffer() + framebuffer->bytesPerRow() + 8;
  EXPECT_EQ(std::vector<int>(lastPixel, lastPixel + 4), (std::vector<int>{255, 0, 0, 255}));
}

using FramebufferDeathTest = FramebufferTest;

TEST_F(FramebufferDeathTest, MisuseStopsTheProgramWithItsText) {
  EXPECT_DEATH(
      {
        const auto framebuffer = fetch({4, 4});
        framebuffer->unlock();
        framebuffer->unlock();
      },
      "Tried to overrelease a framebuffer, did you forget to call -useNextFrameForImageCapture before using "
      "-imageFromCurrentFramebuffer\\?");
  EXPECT_DEATH(TavrelGPUImageFramebuffer(Size{4, 4}, TavrelGPUTextureOptions{.internalFormat = GL_RGB}, true)
                   .newCGImageFromFramebufferContents(),
               "For conversion to a CGImage the output texture format for this filter must be GL_RGBA.");
  EXPECT_DEATH(TavrelGPUImageFramebuffer(Size{4, 4}, TavrelGPUTextureOptions{.type = GL_FLOAT}, true)
                   .newCGImageFromFramebufferContents(),
               "For conversion to a CGImage the type of the output texture of this filter must be GL_UNSIGNED_BYTE.");
  EXPECT_DEATH(fetch({0, 0}), "Error at CVPixelBufferCreate|Incomplete filter FBO: ");
  if (TavrelGPUImageContext::supportsFastTextureUpload()) {
    EXPECT_DEATH(fetch({4, 4})->unlockAfterReading(),
                 "Unbalanced call to -\\[TavrelGPUImageFramebuffer unlockAfterReading\\]");
  }
}

}  // namespace
}  // namespace tavrel
