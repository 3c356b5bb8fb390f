#include "Utiils/TavrelAnimatedImage.h"

#include <map>
#include <set>

#include "AnimatedImageTestSupport.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/ThreadTime.h"
#include "TavrelBase/Log/TavrelDDAbstractLogger.h"
#include "TavrelBase/Log/TavrelDDLog.h"

namespace tavrel::test {
namespace {

TEST(AnimatedImage, DelaysFallBackAndAreRoundedUp) {
  const LogCapture log;
  const auto image =
      makeImage({{.delay = 7}, {.hasControl = false}, {.delay = 1}, {.hasControl = false}, {.delay = 2}, {.delay = 0}});
  EXPECT_EQ(image->delayTimesForIndexes(),
            (std::map<std::size_t, double>{{0, 0.07}, {1, 0.07}, {2, 0.1}, {3, 0.1}, {4, 0.02}, {5, 0.1}}));
  EXPECT_DOUBLE_EQ(image->durationPerLoop(), 0.46);
  image->setDurationPerLoop(3);
  EXPECT_EQ(image->durationPerLoop(), 3);
  EXPECT_TRUE(log.contains("Falling back to preceding delay time for frame 1 ", Level::info));
  EXPECT_TRUE(
      log.contains("Rounding frame 2's `delayTime` from 0.010000 up to default 0.100000 (minimum supported: 0.020000).",
                   Level::info));
  EXPECT_FALSE(log.contains("Rounding frame 4", Level::info));

  const auto first = makeImage({{.hasControl = false}, {.hasControl = false}, {.delay = 3}});
  EXPECT_EQ(first->delayTimesForIndexes(), (std::map<std::size_t, double>{{0, 0.1}, {1, 0.1}, {2, 0.03}}));
  EXPECT_TRUE(log.contains("Falling back to default delay time for first frame ", Level::info));
}

TEST(AnimatedImage, KnowsItsPosterSizeAndLoops) {
  const LogCapture log;
  const auto image = TavrelAnimatedImage::create(makeGif(3, 1, {{.rows = {"rgb"}}, {.rows = {"b"}}}, 4)).value();
  EXPECT_EQ(image->loopCount(), 4U);
  EXPECT_EQ(image->frameCount(), 2U);
  EXPECT_EQ(image->posterImageFrameIndex(), 0U);
  EXPECT_EQ(lettersOf(*image->posterImage()), "rgb");
  EXPECT_EQ(lettersOf(*image->imageAtIndex(1)), "bgb");
  EXPECT_EQ(image->imageAtIndex(2), nullptr);
  EXPECT_EQ(image->size(), (Size{3, 1}));
  EXPECT_NE(image->description().find(" size={3, 1} frameCount=2"), std::string::npos);
  EXPECT_EQ(TavrelAnimatedImage::sizeForImage(image), (Size{3, 1}));
  EXPECT_EQ(TavrelAnimatedImage::sizeForImage(image->posterImage()), (Size{3, 1}));
  EXPECT_EQ(TavrelAnimatedImage::sizeForImage(7), Size{});
  EXPECT_TRUE(log.contains("`image` isn't of expected types `UIImage` or `TavrelAnimatedImage`: ", Level::error));
  EXPECT_EQ(makeImage(plainFrames(1))->loopCount(), 1U) << "the file does not say: once";
  EXPECT_TRUE(log.contains("Created valid GIF but with only a single frame. Image properties: ", Level::info));
}

TEST(AnimatedImage, RefusesWhatIsNoAnimation) {
  const LogCapture log(Level::error);
  EXPECT_EQ(TavrelAnimatedImage::create(Data{}).error().description, "No animated GIF data supplied.");
  EXPECT_FALSE(TavrelAnimatedImage::create().has_value());
  EXPECT_TRUE(log.contains("Use `-initWithAnimatedGIFData:` and supply", Level::error));
  EXPECT_EQ(TavrelAnimatedImage::animatedImageWithGIFData({1, 2, 3}), nullptr);
  EXPECT_TRUE(log.contains("Failed to `CGImageSourceCreateWithData` for animated GIF data <3 bytes>", Level::error));
  const auto gif = makeImage(plainFrames(1));
  const Data png = ImageDestination::encode(gif->posterImage(), "image/png").value();
  EXPECT_EQ(TavrelAnimatedImage::create(png).error().description.find("Supplied data is of type image/png and "), 0U);
  Data broken = makePlainGif(2, 2, plainFrames(1));
  damageGifFrame(broken, 0);
  EXPECT_EQ(TavrelAnimatedImage::create(broken).error().description.find(
                "Failed to create any valid frames for GIF with properties {width = 2, height = 2"),
            0U);
}

TEST(AnimatedImage, DropsDamagedFramesAndGoesOn) {
  const LogCapture log;
  Data gif = makePlainGif(2, 2, {{.delay = 5}, {.delay = 6}, {.hasControl = false}, {.delay = 8}});
  for (const std::size_t index : {0U, 3U}) damageGifFrame(gif, index);
  const auto image = TavrelAnimatedImage::create(gif).value();
  EXPECT_TRUE(log.contains("Dropping frame 0 because failed to `CGImageSourceCreateImageAtIndex` with image source ",
                           Level::info));
  EXPECT_EQ(image->frameCount(), 4U);
  EXPECT_EQ(image->posterImageFrameIndex(), 1U);
  EXPECT_EQ(lettersOf(*image->posterImage()), "gg/gg");
  EXPECT_EQ(image->delayTimesForIndexes(), (std::map<std::size_t, double>{{1, 0.06}, {2, 0.06}}));
  EXPECT_EQ(image->imageLazilyCachedAtIndex(0), nullptr);
  EXPECT_EQ(image->requestedFrameIndexes(), std::set<std::size_t>{2}) << "dropped frames are not tried again";
  finishDecoding(*image);
  EXPECT_EQ(lettersOf(*image->imageLazilyCachedAtIndex(2)), "bb/bb");
}

TEST(AnimatedImage, OpeningDecodesTheFirstFrameOnly) {
  const Data gif = makePlainGif(700, 700, plainFrames(60));
  std::shared_ptr<TavrelAnimatedImage> image;
  const double opening = costOf([&] { image = TavrelAnimatedImage::create(gif).value(); });
  const double decoding = costOf([&] {
    for (std::size_t i = 0; i < 60; ++i) image->imageAtIndex(i);
  });
  EXPECT_LT(opening * 6, decoding);
}

TEST(AnimatedImage, PredrawingBringsFramesToTheLayoutOfTheScreen) {
  const auto rgb = Image::create(1, 2, 8, 24, 4, 0, DataProvider::create(Data{1, 2, 3, 0, 4, 5, 6, 0}))
                       ->withScaleAndOrientation(2, ImageOrientation::left);
  const auto drawn = TavrelAnimatedImage::predrawnImageFromImage(rgb);
  EXPECT_EQ(drawn->bitmapInfo(), kBitmapOpaqueBGRX);
  EXPECT_EQ(drawn->dataProvider()->copyData(), (Data{3, 2, 1, 255, 6, 5, 4, 255}));
  EXPECT_EQ(drawn->scale(), 2);
  EXPECT_EQ(drawn->orientation(), ImageOrientation::left);
  const auto straight = Image::create(1, 1, 8, 32, 4, bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::last),
                                      DataProvider::create(Data{255, 0, 100, 128}));
  const auto multiplied = TavrelAnimatedImage::predrawnImageFromImage(straight);
  EXPECT_EQ(multiplied->bitmapInfo(), kBitmapPremultipliedBGRA);
  EXPECT_EQ(multiplied->dataProvider()->copyData(), (Data{50, 0, 128, 128}));
  EXPECT_EQ(TavrelAnimatedImage::predrawnImageFromImage(multiplied), multiplied);
}

TEST(AnimatedImage, BuildsMessagesOnlyForThoseWhoListen) {
  int built = 0;
  const auto build = [&] { return std::string(1, static_cast<char>('a' + built++)); };
  const LogCapture log(Level::warning);
  TavrelAnimatedImage::setLogBlock({}, Level::debug);
  TavrelAnimatedImage::logStringFromBlock(build, Level::error);
  EXPECT_EQ(built, 0) << "no sink";
  const LogCapture warnings(Level::warning);
  TavrelAnimatedImage::logStringFromBlock(build, Level::info);
  EXPECT_EQ(built, 0) << "above the level";
  TavrelAnimatedImage::logStringFromBlock(build, Level::warning);
  EXPECT_TRUE(warnings.contains("a", Level::warning));
}

TEST(AnimatedImage, ErrorsAndWarningsGoToTheLibrarysLogAtFirst) {
  struct Collector : TavrelDDAbstractLogger {
    std::vector<std::pair<unsigned, std::string>> messages;
    void logMessage(const TavrelDDLogMessage& message) override {
      messages.emplace_back(message.flag(), message.message());
    }
  };
  const auto collector = std::make_shared<Collector>();
  TavrelDDLog::addLogger(collector, TavrelDDLogLevelAll);
  const auto image = makeImage({{.delay = 1}, {.delay = 1}});  // the rounding is information only
  image->imageLazilyCachedAtIndex(2);
  EXPECT_FALSE(TavrelAnimatedImage::create(Data{}).has_value());
  TavrelDDLog::flushLog();
  TavrelDDLog::removeLogger(collector);
  ASSERT_EQ(collector->messages.size(), 2U);
  EXPECT_EQ(collector->messages[0].first, TavrelDDLogFlagWarning);
  EXPECT_EQ(collector->messages[0].second.find("Skipping requested frame 2 beyond bounds"), 0U);
  EXPECT_EQ(collector->messages[1],
            std::pair(unsigned{TavrelDDLogFlagError}, std::string("No animated GIF data supplied.")));
}

}  // namespace
}  // namespace tavrel::test
