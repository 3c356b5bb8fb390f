#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Support/ThreadsTestSupport.h"

namespace tavrel {
namespace {

using test::runTogether;

/// Every setter and getter that has no time of its own.
void setAlways(TavrelGPUImageMovieWriter& writer, int turn) {
  const bool isOdd = turn % 2 == 1;
  writer.setPaused(isOdd);
  writer.setEnabled(!isOdd);
  writer.setCompletionBlock([] {});
  writer.setFailureBlock([](const Error&) {});
  writer.setDelegate(std::make_shared<TavrelGPUImageMovieWriterDelegate>());
  writer.setVideoInputReadyCallback({});
  writer.setAudioInputReadyCallback({});
  writer.setAudioProcessingCallback([](void**, Index) {});
  writer.setShouldPassthroughAudio(false);
  writer.setShouldInvalidateAudioSampleWhenDone(isOdd);
  writer.setInputRotation(isOdd ? kTavrelGPUImageRotate180 : kTavrelGPUImageNoRotation, 0);
  writer.setTransform({1, 0, 0, 1, static_cast<double>(turn), 0});
  writer.setMetaData({});
  EXPECT_FALSE(writer.shouldPassthroughAudio());
  EXPECT_FALSE(writer.error()) << writer.error()->description;
  EXPECT_EQ(writer.encodedSize(), writer.maximumOutputSize());
  EXPECT_NE(writer.assetWriter(), nullptr);
  writer.isPaused();
  writer.enabled();
  writer.completionBlock();
  writer.failureBlock();
  writer.delegate();
  writer.videoInputReadyCallback();
  writer.audioInputReadyCallback();
  writer.audioProcessingCallback();
  writer.shouldInvalidateAudioSampleWhenDone();
  writer.transform();
  writer.metaData();
  writer.isRecording();
  writer.duration();
  writer.hasAudioTrack();
  writer.encodingLiveVideo();
  writer.writtenVideoFrames();
  writer.droppedVideoFrames();
  writer.droppedAudioBuffers();
}

TEST(DestinationThreads, AWriterMayBeSetAndEndedFromManyThreadsWhileFramesRun) {
  const auto file = std::filesystem::temp_directory_path() / ("tavrel-threads-" + std::to_string(getpid()) + ".mov");
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const test::Feeder feeder(input);
  for (int round = 0; round < 4; ++round) {
    const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(file, Size{64, 48});
    input->addTarget(writer);
    const auto set = [&](int turn) { setAlways(*writer, turn + round); };
    runTogether({set,
                 [&](int turn) {
                   writer->setEncodingLiveVideo(turn % 2 == 0);
                   if (turn == 5) writer->setHasAudioTrack(true);
                 }},
                10);
    writer->setEncodingLiveVideo(round % 2 == 0);
    writer->setPaused(false);
    writer->setEnabled(true);
    writer->startRecording();
    // A movie without a sample is an error.
    for (int i = 0; i < 1000 && writer->writtenVideoFrames() == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::atomic<int> handlers = 0;
    runTogether({set, set,
                 [&](int turn) {
                   if (turn == 25) writer->finishRecordingWithCompletionHandler([&] { ++handlers; });
                 },
                 [&](int turn) {
                   if (turn != 24 + round) return;
                   round == 3 ? writer->cancelRecording()
                              : writer->finishRecordingWithCompletionHandler([&] { ++handlers; });
                 },
                 [&](int turn) {
                   if (turn >= 20) input->removeTarget(writer);
                 }},
                40);
    for (int i = 0; i < 1000 && handlers < (round == 3 ? 1 : 2); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(handlers, round == 3 ? 1 : 2);
    EXPECT_FALSE(writer->isRecording());
  }
  std::filesystem::remove(file);
}

TEST(DestinationThreads, AViewMayBeSetFromManyThreadsWhileFramesRun) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto view = std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, {32, 24}});
  view->layoutSubviews();
  input->addTarget(view);
  const test::Feeder feeder(input);
  const auto set = [&](int turn) {
    const bool isOdd = turn % 2 == 1;
    view->setFillMode(isOdd ? kTavrelGPUImageFillModeStretch : kTavrelGPUImageFillModePreserveAspectRatio);
    view->setBackgroundColorRed(isOdd ? 1 : 0, 0, 0, 1);
    view->setEnabled(isOdd);
    view->setAspectRatio(turn);
    view->setInputRotation(isOdd ? kTavrelGPUImageRotate180 : kTavrelGPUImageNoRotation, 0);
    view->setInputSize({16.0 + turn % 2, 12}, 0);
    view->fillMode();
    view->enabled();
    view->aspectRatio();
    EXPECT_EQ(view->sizeInPixels(), view->maximumOutputSize());
  };
  runTogether({set, set, [&](int) { view->recalculateViewGeometry(); }}, 100);
}

}  // namespace
}  // namespace tavrel
