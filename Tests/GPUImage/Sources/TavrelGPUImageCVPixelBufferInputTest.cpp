#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::RecordingTarget;

/// Keeps the video-processing queue busy until it is destroyed.
class BusyQueue {
 public:
  BusyQueue() {
    TavrelRunAsynchronouslyOnVideoProcessingQueue([future = release_.get_future().share()] { future.wait(); });
  }
  ~BusyQueue() {
    release_.set_value();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }

 private:
  std::promise<void> release_;
};

TEST(PixelBufferInput, FramesReachEnabledTargetsWithTheirTime) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto target = std::make_shared<RecordingTarget>();
  const auto disabled = std::make_shared<RecordingTarget>();
  const auto ignored = std::make_shared<RecordingTarget>();
  disabled->isEnabled = false;
  ignored->isIgnored = true;
  for (const auto& each : {target, disabled, ignored}) {
    input->addTarget(each);
    each->events.clear();
  }
  const auto buffer = test::pixelBufferOf(test::distinctPicture(6, 2));
  bool isCompletionCalled = false;
  EXPECT_TRUE(input->processCVPixelBuffer(buffer, MediaTime::make(5, 30), true, [&] { isCompletionCalled = true; }));
  EXPECT_TRUE(input->processCVPixelBuffer(buffer, true));
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});

  EXPECT_EQ(target->names(),
            (std::vector<std::string>{"size", "framebuffer", "frame", "size", "framebuffer", "frame"}));
  EXPECT_EQ(target->events[0].size, (Size{6, 2}));
  EXPECT_EQ(target->events[2].time, MediaTime::make(5, 30));
  EXPECT_TRUE(target->events[5].time.isIndefinite());
  EXPECT_TRUE(disabled->events.empty());
  EXPECT_EQ(ignored->names(), (std::vector<std::string>{"framebuffer", "framebuffer"}));
  EXPECT_FALSE(isCompletionCalled);
}

// Reading waits for what draws into the buffer, not for what draws from it: that may not even be sent off.
TEST(PixelBufferInput, AFrameMayBeReadWhileItIsDrawnFrom) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto holder = std::make_shared<RecordingTarget>();
  input->addTarget(std::make_shared<TavrelGPUImageFilter>());
  input->addTarget(holder);
  const bool sharesMemory = TextureCache::sharesMemory();
  const auto buffer = test::pixelBufferOf(test::distinctPicture(6, 2));
  EXPECT_EQ(buffer->sharesMemory(), sharesMemory);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    ASSERT_TRUE(input->processCVPixelBuffer(buffer, true));
    buffer->lockBaseAddress(PixelBufferLock::readOnly);
    EXPECT_EQ(buffer->baseAddress()[3], 255);
    buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  });
  EXPECT_EQ(holder->count("frame"), 1);
}

TEST(PixelBufferInput, OneFrameIsInFlight) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto target = std::make_shared<RecordingTarget>();
  input->addTarget(target);
  const auto buffer = test::pixelBufferOf(test::distinctPicture(4, 4));
  std::thread waiting;
  std::atomic<bool> isAccepted = false;
  {
    const BusyQueue busy;
    EXPECT_TRUE(input->processCVPixelBuffer(buffer, false));
    EXPECT_FALSE(input->processCVPixelBuffer(buffer, false));
    waiting = std::thread([&] { isAccepted = input->processCVPixelBuffer(buffer, true); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(isAccepted);
  }
  waiting.join();
  EXPECT_TRUE(isAccepted);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(target->count("frame"), 2);
}

TEST(PixelBufferInput, NewBytesInAReusedBufferAreShown) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  input->addTarget(filter);
  const auto buffer = test::pixelBufferOf(test::distinctPicture(3, 3));
  for (int level = 0; level < 250; level += 50) {
    buffer->lockBaseAddress(PixelBufferLock::readWrite);
    std::fill_n(buffer->baseAddress(), buffer->bytesPerRow() * 3, static_cast<std::uint8_t>(level));
    buffer->unlockBaseAddress(PixelBufferLock::readWrite);
    filter->useNextFrameForImageCapture();
    input->processCVPixelBuffer(buffer, MediaTime::make(level, 30), true);
    const auto image = filter->newCGImageFromCurrentlyProcessedOutput();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(test::pictureOf(*image).at(2, 2), (test::Pixel{level, level, level, level}));
  }
}

TEST(PixelBufferInput, NoBufferIsRefused) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  EXPECT_FALSE(input->processCVPixelBuffer(nullptr, true));
  EXPECT_TRUE(input->processCVPixelBuffer(test::pixelBufferOf(test::distinctPicture(4, 4)), false)) << "nothing waits";
}

// Without a run loop, whose purge each second would tidy up.
TEST(PixelBufferInput, FiveHundredFramesLeaveNothingBehind) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto table = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(512, 512)));
  const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  const auto crop = std::make_shared<TavrelGPUImageCropFilter>(Rect{{0, 0}, {0.5, 0.5}});
  input->addTarget(lookup, 0);
  table->addTarget(lookup, 1);
  lookup->addTarget(blur);
  blur->addTarget(crop);
  table->processImage();
  const auto held = [] {
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame is on its way
    const TextureCache::Statistics statistics = TextureCache::statistics();
    return std::pair(TavrelGPUImageFramebuffer::ownedCount(), statistics.texturesCreated - statistics.texturesDeleted);
  };
  const test::Picture frame = test::distinctPicture(32, 24);
  std::pair<std::int64_t, std::uint64_t> afterFifty;
  for (int i = 0; i < 500; ++i) {
    if (i == 50) afterFifty = held();
    const bool isWanted = i % 7 == 0;
    if (isWanted) crop->useNextFrameForImageCapture();
    ASSERT_TRUE(input->processCVPixelBuffer(test::pixelBufferOf(frame), MediaTime::make(i, 30), true));
    if (isWanted) {
      ASSERT_NE(crop->newCGImageFromCurrentlyProcessedOutput(), nullptr);
    }
  }
  EXPECT_EQ(held(), afterFifty);
}

TEST(PixelBufferInputDeathTest, OtherFormatsStopTheProgram) {
  EXPECT_DEATH(
      {
        const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
        const auto buffer = PixelBuffer::create(16, 16, PixelFormat::biPlanar420VideoRange);
        input->processCVPixelBuffer(buffer.value(), false);
      },
      "<TavrelGPUImageCVPixelBufferInput: 0x[0-9a-f]+>: only kCVPixelFormatType_32BGRA is supported currently.");
}

}  // namespace
}  // namespace tavrel
