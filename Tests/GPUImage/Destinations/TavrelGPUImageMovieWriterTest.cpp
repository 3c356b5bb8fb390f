#include <malloc.h>

#include <atomic>
#include <optional>
#include <thread>

#include "MovieWriterTestSupport.h"
#include "Support/ScalingReference.h"

namespace tavrel::test {
namespace {

/// Dark red above, bright blue below; the left third green.
Picture landmark() {
  return {kWidth, kHeight, [](int x, int y) {
            if (x < kWidth / 3) return Pixel{40, 160, 40, 255};
            return y < kHeight / 2 ? Pixel{120, 20, 20, 255} : Pixel{60, 60, 220, 255};
          }};
}

/// Upright and in its colours.
void expectLandmark(const Picture& decoded) {
  const Picture source = landmark();
  for (const auto& [x, y] : {std::pair(8, 8), std::pair(8, 40), std::pair(44, 8), std::pair(44, 40)}) {
    EXPECT_NEAR(decoded.at(x, y).r, source.at(x, y).r, 4);
    EXPECT_NEAR(decoded.at(x, y).g, source.at(x, y).g, 4);
    EXPECT_NEAR(decoded.at(x, y).b, source.at(x, y).b, 4);
  }
}

TEST_F(MovieWriterTest, FramesAreKeptWithTheirTimesUprightAndInColour) {
  createNotLive();
  writer_->startRecording();
  std::vector<double> expected;
  std::int64_t value = 123'456;
  for (int i = 0; i < 20; ++i) {
    sendFrame(landmark(), MediaTime::make(value, 600));
    expected.push_back(static_cast<double>(value - 123'456) / 600);
    value += 15 + 7 * (i % 3);  // a variable frame rate
  }
  EXPECT_EQ(writer_->duration(), MediaTime::make(value - 123'456 - 15 - 7 * (19 % 3), 600));
  finish();

  const auto frames = decodedFrames();
  ASSERT_EQ(frames.size(), expected.size());
  for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_NEAR(frames[i].time.seconds(), expected[i], 1.0 / 600 + 1e-9);
  expectLandmark(frames.back().picture);
}

TEST_F(MovieWriterTest, LargerFramesAreReducedToTheirMeans) {
  create({{kTavrelEncodingLiveVideoKey, false}, {kVideoQualityKey, 1.0}});
  writer_->startRecording();
  const Picture rings = zonePlate(kWidth * 4, kHeight * 4);
  const Picture source(rings.width, rings.height, [&](int x, int y) {
    const int level = rings.at(x, y).r;
    return Pixel{level, level, level, 255};
  });
  for (int i = 0; i < 3; ++i) sendFrame(source, MediaTime::make(i, 30));
  finish();
  EXPECT_LE(largestDifference(decodedFrames().at(2).picture, scaled(source, kWidth, kHeight, triangle, false)), 12);
}

TEST_F(MovieWriterTest, FramesOfTheGraphKeepTheirPicturesWhileTheNextAreDrawn) {
  createNotLive();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  input_->removeTarget(writer_);
  input_->addTarget(filter);
  filter->addTarget(writer_);
  writer_->startRecording();
  constexpr int kFrames = 25;
  for (int i = 0; i < kFrames; ++i) {
    input_->processCVPixelBuffer(pixelBufferOf(gray(10 * i)), MediaTime::make(i, 30), true);
  }
  sendFrame(landmark(), MediaTime::make(kFrames, 30));
  finish();
  const auto frames = decodedFrames();
  ASSERT_EQ(frames.size(), kFrames + 1U);
  for (int i = 0; i < kFrames; ++i) EXPECT_NEAR(frames[static_cast<std::size_t>(i)].picture.at(8, 8).r, 10 * i, 4) << i;
  expectLandmark(frames.back().picture);
}

TEST_F(MovieWriterTest, TheWritersQueueHasTheSharedContextWhileTheVideoQueueWaitsForIt) {
  createNotLive();
  writer_->startRecording();
  writer_->movieWriterContext()->contextQueue()->async([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until too many frames are in flight
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {
      TavrelGPUImageContext::useImageProcessingContext();
      EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    });
  });
  for (int i = 0; i < 10; ++i) sendFrame(MediaTime::make(i, 30));
  finish();
  EXPECT_EQ(frameSeconds().size(), 10U);
}

TEST_F(MovieWriterTest, TheInputRotationTurnsThePicture) {
  createNotLive();
  writer_->setInputRotation(kTavrelGPUImageRotate180, 0);
  writer_->startRecording();
  sendFrame(landmark(), MediaTime::make(0, 30));
  finish();
  const Picture decoded = decodedFrames().at(0).picture;
  EXPECT_GT(decoded.at(kWidth - 8, 8).g, 130);
  EXPECT_GT(decoded.at(20, 8).b, 180);
}

TEST_F(MovieWriterTest, FramesThatWouldBreakTheFileAreLeftOut) {
  createNotLive();
  sendFrame(MediaTime::make(0, 30));  // not recording yet
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  sendFrame(MediaTime::make(0, 30));
  sendFrame(MediaTime::make(0, 600));
  sendFrame(MediaTime::indefinite());
  sendFrame(MediaTime::invalid());
  sendFrame(MediaTime::make(1, 30));
  finish();
  sendFrame(MediaTime::make(2, 30));
  EXPECT_EQ(frameSeconds().size(), 2U);
}

TEST_F(MovieWriterTest, FramesOfATimeBeforeTheSoundThatBeganTheMovieAreCountedAsDropped) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  const ConsoleCapture console;
  for (int i = 0; i < 8; ++i) sendSound(MediaTime::make(kRate + i * 1024, kRate));
  sendFrame(MediaTime::make(29, 30));
  sendFrame(MediaTime::make(31, 30));
  finish();
  EXPECT_EQ(writer_->droppedVideoFrames(), 1U);
  EXPECT_THAT(console.messages(), ::testing::IsEmpty());
  EXPECT_EQ(frameSeconds().size(), 1U);
}

TEST_F(MovieWriterTest, BlocksAndCallbacksAreReadBackAndReplacedWhileTheyRun) {
  createNotLive();
  writer_->setHasAudioTrack(true);
  EXPECT_FALSE(writer_->completionBlock() || writer_->failureBlock() || writer_->audioProcessingCallback());
  EXPECT_FALSE(writer_->videoInputReadyCallback() || writer_->audioInputReadyCallback());
  writer_->setVideoInputReadyCallback([] { return true; });
  writer_->setAudioInputReadyCallback([] { return false; });
  EXPECT_TRUE(writer_->videoInputReadyCallback()());
  EXPECT_FALSE(writer_->audioInputReadyCallback()());
  writer_->setVideoInputReadyCallback({});
  writer_->setAudioInputReadyCallback({});
  EXPECT_FALSE(writer_->videoInputReadyCallback());
  std::optional<Error> failed;
  writer_->setFailureBlock([&](const Error& error) { failed = error; });
  writer_->failureBlock()({.domain = "media", .code = 7, .description = ""});
  EXPECT_EQ(failed->code, 7);

  std::atomic<int> processed = 0;
  std::atomic<bool> isOver = false;
  std::thread setter([&] {
    while (!isOver) {
      writer_->setAudioProcessingCallback([&, held = std::make_shared<int>(1)](void**, Index) { processed += *held; });
      writer_->setCompletionBlock([] {});
      writer_->setDelegate(std::make_shared<TavrelGPUImageMovieWriterDelegate>());
    }
  });
  while (!writer_->audioProcessingCallback()) std::this_thread::yield();
  writer_->startRecording();
  writer_->processAudioBuffer(nullptr);
  for (int i = 0; i < 100; ++i) {
    sendSound(MediaTime::make(i * 1024, kRate));
    writer_->endProcessing();
  }
  isOver = true;
  setter.join();
  EXPECT_EQ(processed, 100);
  writer_->cancelRecording();
}

TEST_F(MovieWriterTest, TheGraphMayDrawWhileTheWriterDoes) {
  // What a driver reads after giving it up is then certain to be wrong.
  mallopt(M_PERTURB, 0x55);
  createNotLive();
  input_->removeAllTargets();
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  std::shared_ptr<TavrelGPUImageOutput> last = input_;
  for (int i = 0; i < 40; ++i) {
    filters.push_back(std::make_shared<TavrelGPUImageFilter>());
    last->addTarget(filters.back());
    last = filters.back();
  }
  last->addTarget(writer_);
  writer_->startRecording();
  const auto buffer = pixelBufferOf(gray(100));
  constexpr int kFrames = 800;
  for (int i = 0; i < kFrames; ++i) input_->processCVPixelBuffer(buffer, MediaTime::make(i, 30), true);
  settle();
  finish();
  EXPECT_EQ(frameSeconds().size(), kFrames);
  mallopt(M_PERTURB, 0);
}

}  // namespace
}  // namespace tavrel::test
