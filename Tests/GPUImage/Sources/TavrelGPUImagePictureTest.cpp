#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;
using test::RecordingTarget;

/// A 32-bit image of `bytes` in the given layout.
std::shared_ptr<Image> image(std::size_t width, std::size_t height, std::uint32_t byteOrder, AlphaInfo alpha,
                             Data bytes) {
  return Image::create(width, height, 8, 32, width * 4, byteOrder | static_cast<std::uint32_t>(alpha),
                       DataProvider::create(std::move(bytes)));
}

/// What the graph makes of `source`, unchanged by filters.
Picture uploaded(const std::shared_ptr<Image>& source, bool removePremultiplication = false) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(source, false, removePremultiplication);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  picture->addTarget(filter);
  filter->useNextFrameForImageCapture();
  picture->processImage();
  return test::pictureOf(*filter->newCGImageFromCurrentlyProcessedOutput());
}

Picture onePixel(Pixel pixel) {
  return {1, 1, [pixel](int, int) { return pixel; }};
}

TEST(Picture, LayoutsThatGLKnowsAreUploadedAsTheyAre) {
  // Memory order of the four bytes, by byte order: B G R A for little, R G B A for big ones.
  for (const AlphaInfo alpha : {AlphaInfo::premultipliedFirst, AlphaInfo::first, AlphaInfo::noneSkipFirst}) {
    EXPECT_EQ(largestDifference(uploaded(image(1, 1, kBitmapByteOrder32Little, alpha, {10, 20, 30, 128})),
                                onePixel({30, 20, 10, 128})),
              0);
  }
  for (const std::uint32_t order : {kBitmapByteOrderDefault, kBitmapByteOrder32Big}) {
    for (const AlphaInfo alpha : {AlphaInfo::premultipliedLast, AlphaInfo::last, AlphaInfo::noneSkipLast}) {
      EXPECT_EQ(largestDifference(uploaded(image(1, 1, order, alpha, {10, 20, 30, 128})), onePixel({10, 20, 30, 128})),
                0);
    }
  }
  // The 16-bit orders count as B G R A.
  EXPECT_EQ(largestDifference(uploaded(image(1, 1, kBitmapByteOrder16Little, AlphaInfo::last, {10, 20, 30, 128})),
                              onePixel({30, 20, 10, 128})),
            0);
}

TEST(Picture, OtherLayoutsAreRedrawnPremultiplied) {
  // A, R, G, B in memory, straight.
  EXPECT_LE(largestDifference(uploaded(image(1, 1, kBitmapByteOrder32Big, AlphaInfo::first, {128, 200, 100, 50})),
                              onePixel({100, 50, 25, 128})),
            1);
  // Rows with padding.
  const auto padded = Image::create(1, 2, 8, 32, 8, kBitmapByteOrder32Little | 4U,
                                    DataProvider::create(Data{1, 2, 3, 255, 9, 9, 9, 9, 4, 5, 6, 255, 9, 9, 9, 9}));
  EXPECT_EQ(largestDifference(uploaded(padded), {1, 2,
                                                 [](int, int y) {
                                                   return y == 0 ? Pixel{3, 2, 1, 255} : Pixel{6, 5, 4, 255};
                                                 }}),
            0);
}

TEST(Picture, PremultiplicationIsRemovedWhereTheLayoutSaysSo) {
  const Data premultiplied = {50, 25, 10, 128, 0, 0, 0, 0};
  const auto big = image(2, 1, kBitmapByteOrder32Big, AlphaInfo::premultipliedLast, premultiplied);
  // 50 / 128 · 255 = 99.6, 49.8, 19.9: truncated.
  const Picture straight = {2, 1, [](int x, int) { return x == 0 ? Pixel{99, 49, 19, 128} : Pixel{0, 0, 0, 0}; }};
  EXPECT_EQ(largestDifference(uploaded(big, true), straight), 0);
  EXPECT_EQ(uploaded(big, false).at(0, 0), (Pixel{50, 25, 10, 128}));
  // Straight data, and little-endian premultiplied data uploaded as it is, stay as they are.
  EXPECT_EQ(uploaded(image(2, 1, kBitmapByteOrder32Big, AlphaInfo::last, premultiplied), true).at(0, 0),
            (Pixel{50, 25, 10, 128}));
  EXPECT_EQ(
      uploaded(image(2, 1, kBitmapByteOrder32Little, AlphaInfo::premultipliedFirst, premultiplied), true).at(0, 0),
      (Pixel{10, 25, 50, 128}));
  // Redrawn data is premultiplied and can be straightened too.
  EXPECT_LE(largestDifference(uploaded(image(1, 1, kBitmapByteOrder32Big, AlphaInfo::first, {128, 200, 100, 50}), true),
                              onePixel({200, 100, 50, 128})),
            2);
}

TEST(Picture, SmoothPicturesGetPowersOfTwoButKeepTheirSize) {
  const auto source = test::imageOf({300, 200, [](int, int) { return Pixel{40, 80, 120, 255}; }});
  const auto picture = std::make_shared<TavrelGPUImagePicture>(source, true);
  EXPECT_EQ(picture->outputImageSize(), (Size{300, 200}));
  EXPECT_EQ(picture->framebufferForOutput()->size(), (Size{512, 256}));
  EXPECT_TRUE(picture->framebufferForOutput()->missingFramebuffer());
  const auto target = std::make_shared<RecordingTarget>();
  picture->addTarget(target);
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(target->events.at(1).size, (Size{300, 200}));

  // Drawn very small, mipmaps average a checkerboard to gray.
  const auto checks = test::imageOf({64, 64, [](int x, int y) {
                                       return (x + y) % 2 ? Pixel{255, 255, 255, 255} : Pixel{0, 0, 0, 255};
                                     }});
  const auto smooth = std::make_shared<TavrelGPUImagePicture>(checks, true);
  const auto small = std::make_shared<TavrelGPUImageFilter>();
  small->forceProcessingAtSize({4, 4});
  smooth->addTarget(small);
  small->useNextFrameForImageCapture();
  smooth->processImage();
  const Picture reduced = test::pictureOf(*small->newCGImageFromCurrentlyProcessedOutput());
  EXPECT_NEAR(reduced.at(1, 2).g, 127, 3);
}

TEST(Picture, TooLargePicturesAreFittedIntoATexture) {
  const auto limit = static_cast<std::size_t>(TavrelGPUImageContext::maximumTextureSizeForThisDevice());
  const auto source = image(limit * 2, 2, kBitmapByteOrder32Little, AlphaInfo::first, Data(limit * 16, 200));
  const auto picture = std::make_shared<TavrelGPUImagePicture>(source);
  EXPECT_EQ(picture->outputImageSize(), (Size{static_cast<double>(limit), 1}));
  // Nor does what is left of a line vanish.
  picture->updateWithCGImage(image(limit * 4, 1, kBitmapByteOrder32Little, AlphaInfo::first, Data(limit * 16, 200)));
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  picture->addTarget(filter);
  filter->useNextFrameForImageCapture();
  picture->processImage();
  EXPECT_NEAR(test::pictureOf(*filter->newCGImageFromCurrentlyProcessedOutput()).at(7, 0).g, 157, 3);
}

TEST(Picture, EachPassDeliversTheSameFramebufferWithoutATime) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  const auto target = std::make_shared<RecordingTarget>();
  picture->addTarget(target, 1);
  target->events.clear();
  for (int pass = 0; pass < 2; ++pass) {
    std::promise<void> done;
    EXPECT_TRUE(picture->processImageWithCompletionHandler([&] { done.set_value(); }));
    done.get_future().wait();
  }
  EXPECT_EQ(target->names(),
            (std::vector<std::string>{"size", "framebuffer", "frame", "size", "framebuffer", "frame"}));
  EXPECT_EQ(target->events[1].framebuffer, target->events[4].framebuffer);
  EXPECT_TRUE(target->events[2].time.isIndefinite());
}

TEST(Picture, ASecondRequestInFlightIsRefused) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  const auto target = std::make_shared<RecordingTarget>();
  picture->addTarget(target);
  std::promise<void> release;
  TavrelRunAsynchronouslyOnVideoProcessingQueue([future = release.get_future().share()] { future.wait(); });
  bool secondWasCompleted = false;
  EXPECT_TRUE(picture->processImageWithCompletionHandler({}));
  EXPECT_FALSE(picture->processImageWithCompletionHandler([&] { secondWasCompleted = true; }));
  release.set_value();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(target->count("frame"), 1);
  EXPECT_FALSE(secondWasCompleted);
}

TEST(Picture, LateTargetsAreToldOfAFrameWithoutOne) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  const auto early = std::make_shared<RecordingTarget>();
  picture->addTarget(early);
  EXPECT_EQ(early->count("frame"), 0);
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const auto late = std::make_shared<RecordingTarget>();
  picture->addTarget(late);
  EXPECT_EQ(late->names(), (std::vector<std::string>{"framebuffer", "size", "frame"}));
  picture->removeAllTargets();
  const auto afterwards = std::make_shared<RecordingTarget>();
  picture->addTarget(afterwards);
  EXPECT_EQ(afterwards->count("frame"), 0);
}

TEST(Picture, ATargetMayBeAddedOffTheQueueAfterARequest) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto behind = std::make_shared<RecordingTarget>();
  filter->addTarget(behind);
  picture->processImage();
  picture->addTarget(filter);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_GE(behind->count("frame"), 1);
}

TEST(Picture, AReplacedImageIsTheOneDelivered) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(onePixel({1, 2, 3})));
  const std::weak_ptr<TavrelGPUImageFramebuffer> old = picture->framebufferForOutput();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  picture->addTarget(filter);
  picture->updateWithCGImage(test::imageOf(test::distinctPicture(9, 5)));
  std::promise<std::shared_ptr<Image>> result;
  picture->processImageUpToFilter(filter, [&](std::shared_ptr<Image> image) { result.set_value(std::move(image)); });
  const auto image = result.get_future().get();
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(largestDifference(test::pictureOf(*image), test::distinctPicture(9, 5)), 0);
  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_TRUE(old.expired());  // it went back to the cache
}

TEST(Picture, ImagesAreReplacedFromSeveralThreadsWhileItIsShown) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(16, 16)));
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  picture->addTarget(filter);
  std::vector<std::jthread> threads;
  for (const int width : {16, 24}) {
    threads.emplace_back([&, width] {
      for (int i = 0; i < 100; ++i) {
        picture->updateWithCGImage(test::imageOf(test::distinctPicture(width, 16)));
        picture->processImage();
      }
    });
  }
  threads.clear();
  const test::Picture last = test::distinctPicture(20, 10);
  picture->updateWithCGImage(test::imageOf(last));
  picture->removeAllTargets();
  EXPECT_EQ(test::largestDifference(test::process(last, filter), last), 0);
}

TEST(PictureDeathTest, EmptyAndUnreadablePicturesStopTheProgram) {
  const char* const text = "Passed image must not be empty - it should be at least 1px tall and wide";
  EXPECT_DEATH(TavrelGPUImagePicture(image(0, 4, kBitmapByteOrder32Little, AlphaInfo::first, {})), text);
  EXPECT_DEATH(TavrelGPUImagePicture(std::filesystem::path("no such picture.png")), text);
  EXPECT_DEATH(TavrelGPUImagePicture(Data{1, 2, 3}), text);
}

}  // namespace
}  // namespace tavrel
