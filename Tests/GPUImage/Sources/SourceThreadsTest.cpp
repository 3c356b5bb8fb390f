#include <gtest/gtest.h>

#include "Support/ReaderMovies.h"
#include "Support/ThreadsTestSupport.h"

namespace tavrel {
namespace {

using test::runTogether;

TEST(SourceThreads, AMovieMayBeSetFromManyThreadsWhileItIsRead) {
  const test::ReaderFolder folder;
  const auto file = folder / "movie.mov";
  test::makeMovie(file, "-f lavfi -i testsrc=s=64x48:r=30:d=2 -pix_fmt yuv420p OUT");
  const auto composition = MutableComposition::create();
  const auto pictures = MutableVideoComposition::create();
  for (int round = 0; round < 4; ++round) {
    const auto movie = std::make_shared<TavrelGPUImageMovie>(file);
    const auto edited = std::make_shared<TavrelGPUImageMovieComposition>(composition, pictures, nullptr);
    const auto filter = std::make_shared<TavrelGPUImageFilter>();
    const auto asset = std::make_shared<TavrelGPUImageMovie>(Asset::create(file).value());
    movie->addTarget(filter);
    const auto set = [&](int turn) {
      const bool isOdd = turn % 2 == 1;
      for (const auto& source : {movie, asset}) {
        source->setUrl(source->url());
        source->setAsset(source->asset());
        source->setPlayerItem(nullptr);
        source->setRunBenchmark(false);
        source->setPlayAtActualSpeed(isOdd);
        source->setShouldRepeat(false);
        source->setReverseVideo(isOdd);
        source->setStartTime(turn);
        source->setDuration(turn);
        source->setDelegate(std::make_shared<TavrelGPUImageMovieDelegate>());
      }
      edited->setCompositon(composition);
      edited->setVideoComposition(isOdd ? pictures : nullptr);
      edited->setAudioMix(nullptr);
    };
    const auto get = [&](int) {
      for (const auto& source : {movie, asset}) {
        EXPECT_GE(source->progress(), 0);
        EXPECT_LE(source->progress(), 1);
        EXPECT_EQ(source->playerItem(), nullptr);
        EXPECT_FALSE(source->runBenchmark() || source->shouldRepeat());
        source->assetReader();
        source->playAtActualSpeed();
        source->reverseVideo();
        source->startTime();
        source->duration();
        source->delegate();
        source->audioEncodingIsFinished();
        source->videoEncodingIsFinished();
      }
      EXPECT_EQ(edited->compositon(), composition);
      EXPECT_EQ(edited->audioMix(), nullptr);
      edited->videoComposition();
    };
    movie->startProcessing();
    runTogether({set, set, get,
                 [&](int turn) {
                   if (turn == 20 + round * 20) movie->cancelProcessing();
                 }},
                100);
    movie->cancelProcessing();
    movie->removeAllTargets();
  }
}

TEST(SourceThreads, APictureMayBeReplacedAndProcessedFromManyThreads) {
  const auto image = test::imageOf(test::distinctPicture(16, 12));
  const auto other = test::imageOf(test::distinctPicture(20, 10));
  const auto picture = std::make_shared<TavrelGPUImagePicture>(image);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  picture->addTarget(filter);
  std::atomic<int> passes = 0;
  std::atomic<int> begun = 0;
  runTogether({[&](int turn) { picture->updateWithCGImage(turn % 2 == 0 ? other : image, turn % 3 == 0); },
               [&](int) { picture->processImage(); },
               [&](int) { begun += picture->processImageWithCompletionHandler([&] { ++passes; }) ? 1 : 0; },
               [&](int turn) {
                 picture->processImageUpToFilter(filter,
                                                 [](const std::shared_ptr<Image>& seen) { EXPECT_NE(seen, nullptr); });
                 EXPECT_GE(picture->outputImageSize().width, 16);
                 if (turn % 10 == 9) picture->removeAllTargets();
                 picture->addTarget(filter);
               }},
              60);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(passes, begun);

  picture->updateWithCGImage(image);
  filter->useNextFrameForImageCapture();
  picture->processImage();
  const auto seen = filter->newCGImageFromCurrentlyProcessedOutput();
  ASSERT_NE(seen, nullptr);
  EXPECT_EQ(largestDifference(test::pictureOf(*seen), test::distinctPicture(16, 12)), 0);
}

}  // namespace
}  // namespace tavrel
