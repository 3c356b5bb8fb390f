#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::ConsoleCapture;

bool isOnQueueOf(const TavrelGPUImageContext& context) {
  return DispatchQueue::getSpecific(TavrelGPUImageContext::contextKey()) == &context;
}

TEST(ContextQueues, SubmissionsFromOutsideRunOnTheQueueAndFromInsideInline) {
  std::vector<int> order;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    EXPECT_TRUE(isOnQueueOf(*TavrelGPUImageContext::sharedImageProcessingContext()));
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { order.push_back(1); });
    order.push_back(2);
    TavrelRunAsynchronouslyOnVideoProcessingQueue([&] { order.push_back(3); });
    order.push_back(4);
  });
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));

  std::atomic<bool> mayFinish = false;
  std::atomic<bool> isFinished = false;
  TavrelRunAsynchronouslyOnVideoProcessingQueue([&] {
    while (!mayFinish) std::this_thread::yield();
    isFinished = true;
  });
  EXPECT_FALSE(isFinished);  // the submission returned before the block ended
  mayFinish = true;
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_TRUE(isFinished);
}

TEST(ContextQueues, ABlockForAnotherContextRunsInlineOnTheQueueItCameFrom) {
  const auto other = std::make_shared<TavrelGPUImageContext>();
  TavrelRunSynchronouslyOnContextQueue(*other, [&] {
    EXPECT_TRUE(isOnQueueOf(*other));
    bool ran = false;
    TavrelRunAsynchronouslyOnVideoProcessingQueue([&] {
      ran = true;
      EXPECT_TRUE(isOnQueueOf(*other));
    });
    EXPECT_TRUE(ran);
  });
}

// The shared context is current on its own thread; work that arrives over another context's queue borrows it.
TEST(ContextQueues, GLWorkInlineOnAnotherContextsQueueBorrowsTheContextAndGivesItBack) {
  const auto other = std::make_shared<TavrelGPUImageContext>();
  other->useSharegroup(TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup());
  const auto picture = test::distinctPicture(5, 3);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  for (int round = 0; round < 20; ++round) {
    TavrelRunAsynchronouslyOnVideoProcessingQueue([] { TavrelGPUImageContext::useImageProcessingContext(); });
    TavrelRunSynchronouslyOnContextQueue(*other, [&] {
      other->useAsCurrentContext();
      auto made = std::make_shared<TavrelGPUImageFilter>(
          "varying highp vec2 textureCoordinate; uniform sampler2D "
          "inputImageTexture; void main() { gl_FragColor = vec4(1.0); }");
      EXPECT_TRUE(made->program()->initialized());
      EXPECT_EQ(GLContext::current(), other->context().get());
    });
    EXPECT_EQ(test::largestDifference(process(picture, filter), picture), 0);
  }
}

TEST(ContextQueues, TheMainThreadRunsItsBlocksItself) {
  ASSERT_TRUE(RunLoop::isMainThread());
  bool ran = false;
  TavrelRunOnMainQueueWithoutDeadlocking([&] { ran = true; });
  EXPECT_TRUE(ran);

  std::atomic<bool> ranOnMain = false;
  std::atomic<bool> returned = false;
  std::thread outside([&] {
    TavrelRunOnMainQueueWithoutDeadlocking([&] { ranOnMain = RunLoop::isMainThread(); });
    returned = true;
  });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return returned.load(); }, std::chrono::seconds(10)));
  outside.join();
  EXPECT_TRUE(ranOnMain);
}

TEST(Context, SizesAreClampedToTheTextureLimit) {
  const auto fitted = [](double width, double height) {
    return TavrelGPUImageContext::sizeThatFitsWithin(4096, {width, height});
  };
  EXPECT_EQ(fitted(4000, 3000), (Size{4000, 3000}));
  EXPECT_EQ(fitted(5000, 2500), (Size{4096, 2048}));
  EXPECT_EQ(fitted(2500, 5000), (Size{2048, 4096}));
  EXPECT_EQ(fitted(5000, 5000), (Size{4096, 4096}));
  EXPECT_EQ(fitted(4096, 100), (Size{4096, 100}));
  EXPECT_NEAR(fitted(5000, 333).height, 333 * 4096.0 / 5000, 1e-9);
  const double limit = TavrelGPUImageContext::maximumTextureSizeForThisDevice();
  EXPECT_GE(limit, 2048);
  EXPECT_EQ(TavrelGPUImageContext::sizeThatFitsWithinATextureForSize({2 * limit, limit}), (Size{limit, limit / 2}));
}

TEST(Context, DeviceQueriesMayComeFromAnyThread) {
  std::thread([] { EXPECT_GE(TavrelGPUImageContext::maximumTextureUnitsForThisDevice(), 8); }).join();
  EXPECT_GE(TavrelGPUImageContext::maximumVaryingVectorsForThisDevice(), 8);
  EXPECT_TRUE(TavrelGPUImageContext::deviceSupportsOpenGLESExtension("GL_EXT_texture_format_BGRA8888"));
  EXPECT_FALSE(TavrelGPUImageContext::deviceSupportsOpenGLESExtension("GL_EXT_texture_format_BGRA888"));
  EXPECT_EQ(TavrelGPUImageContext::deviceSupportsRedTextures(),
            TavrelGPUImageContext::deviceSupportsOpenGLESExtension("GL_EXT_texture_rg"));
}

TEST(Context, ProgramsOfEqualSourcesAreOneObject) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {
    auto& context = *TavrelGPUImageContext::sharedImageProcessingContext();
    context.useAsCurrentContext();
    const std::string vertex = kTavrelGPUImageVertexShaderString;
    const std::string fragment = kTavrelGPUImagePassthroughFragmentShaderString;
    const auto program = context.programForVertexShaderString(vertex, fragment);
    EXPECT_EQ(program, context.programForVertexShaderString(vertex, fragment));
    EXPECT_NE(program, context.programForVertexShaderString(vertex, fragment + " "));
    EXPECT_NE(program, context.programForVertexShaderString(vertex + " ", fragment));
  });
}

TEST(Context, ReportsMemoryOnTheConsole) {
  const ConsoleCapture console;
  reportAvailableMemoryForTavrelGPUImage();
  reportAvailableMemoryForTavrelGPUImage("Graph");
  const auto messages = console.messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].rfind("Default - Memory used: ", 0), 0U);
  EXPECT_EQ(messages[1].rfind("Graph - Memory used: ", 0), 0U);
  EXPECT_GT(std::stoull(messages[1].substr(messages[1].find(": ") + 2)), 1000000U);
}

TEST(Context, QueueAttributeIsSerialAndOfStandardQuality) {
  const DispatchQueueAttribute attribute = TavrelGPUImageDefaultQueueAttribute();
  EXPECT_TRUE(attribute.isSerial);
  EXPECT_EQ(static_cast<unsigned>(attribute.qualityOfService), 0x15U);
  const std::string& label = TavrelGPUImageContext::sharedContextQueue()->label();
  const std::string suffix = "TavrelGPUImage.openGLESContextQueue";
  EXPECT_EQ(label.substr(label.size() - suffix.size()), suffix);
}

TEST(ContextDeathTest, ASharegroupComesTooLateOnceTheContextExists) {
  EXPECT_DEATH(
      {
        TavrelGPUImageContext context;
        const auto sharegroup = TavrelGPUImageContext::sharedImageProcessingContext()->context()->sharegroup();
        context.context();
        context.useSharegroup(sharegroup);
      },
      "Unable to use a share group when the context has already been created. Call this method before you use the "
      "context for the first time.");
}

}  // namespace
}  // namespace tavrel
