#include "Utiils/TavrelAnimatedImage.h"

#include <gtest/gtest.h>

#include <thread>

#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/UI/Application.h"
#include "Support/EffectsGif.h"
#include "Support/ThreadTime.h"
#include "TavrelBase/Log/TavrelDDAbstractLogger.h"
#include "TavrelBase/Log/TavrelDDLog.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;
using Level = TavrelAnimatedImageLogLevel;
using Indexes = std::set<std::size_t>;

/// Collects what the images log while it lives.
class LogCapture {
 public:
  explicit LogCapture(Level level = Level::debug) {
    TavrelAnimatedImage::setLogBlock(
        [this](const std::string& text, Level messageLevel) {
          const std::lock_guard lock(mutex_);
          messages_.emplace_back(text, messageLevel);
        },
        level);
  }
  ~LogCapture() { TavrelAnimatedImage::setLogBlock(TavrelAnimatedImage::libraryLogBlock(), Level::warning); }

  bool contains(const std::string& part, Level level) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(messages_.begin(), messages_.end(), [&](const auto& message) {
      return message.second == level && message.first.find(part) != std::string::npos;
    });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, Level>> messages_;
};

std::shared_ptr<TavrelAnimatedImage> makeImage(const std::vector<GifFrameSpec>& frames, std::size_t cacheSize = 0,
                                               int side = 2) {
  return TavrelAnimatedImage::create(makePlainGif(side, side, frames), cacheSize).value();
}

std::vector<GifFrameSpec> plainFrames(std::size_t count) { return std::vector<GifFrameSpec>(count); }

/// Runs the main loop until nothing is being decoded.
void finishDecoding(const TavrelAnimatedImage& image) {
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return image.requestedFrameIndexes().empty(); }, 20s));
}

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
  const std::size_t block = gifFrameData(broken, 0);
  for (std::size_t i = 1; i <= broken[block]; ++i) broken[block + i] = 0xFF;
  EXPECT_EQ(TavrelAnimatedImage::create(broken).error().description.find(
                "Failed to create any valid frames for GIF with properties {width = 2, height = 2"),
            0U);
}

TEST(AnimatedImage, DropsDamagedFramesAndGoesOn) {
  const LogCapture log;
  Data gif = makePlainGif(2, 2, {{.delay = 5}, {.delay = 6}, {.hasControl = false}, {.delay = 8}});
  for (const std::size_t index : {0U, 3U}) {
    const std::size_t block = gifFrameData(gif, index);
    for (std::size_t i = 1; i <= gif[block]; ++i) gif[block + i] = 0xFF;
  }
  const auto image = TavrelAnimatedImage::create(gif).value();
  EXPECT_TRUE(log.contains("Dropping frame 0 because failed to `CGImageSourceCreateImageAtIndex` with image source ",
                           Level::info));
  EXPECT_EQ(image->frameCount(), 4U);
  EXPECT_EQ(image->posterImageFrameIndex(), 1U);
  EXPECT_EQ(lettersOf(*image->posterImage()), "gg/gg");
  EXPECT_EQ(image->delayTimesForIndexes(), (std::map<std::size_t, double>{{1, 0.06}, {2, 0.06}}));
  EXPECT_EQ(image->imageLazilyCachedAtIndex(0), nullptr);
  EXPECT_EQ(image->requestedFrameIndexes(), Indexes{2}) << "dropped frames are not tried again";
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

TEST(AnimatedImage, TheSizeOfTheFramesDecidesHowManyAreKept) {
  EXPECT_EQ(makeImage(plainFrames(40), 0, 500)->frameCacheSizeOptimal(), 5U);   // 38 MB
  EXPECT_EQ(makeImage(plainFrames(4), 0, 500)->frameCacheSizeOptimal(), 4U);    // 4 MB
  EXPECT_EQ(makeImage(plainFrames(20), 0, 1000)->frameCacheSizeOptimal(), 1U);  // 76.3 MB
  EXPECT_EQ(makeImage(plainFrames(3), 0, 1000)->frameCacheSizeOptimal(), 3U);   // 11.4 MB would be 5, of 3 frames
  EXPECT_EQ(makeImage(plainFrames(10), 7)->frameCacheSizeOptimal(), 7U);
  EXPECT_EQ(makeImage(plainFrames(4), 7)->frameCacheSizeOptimal(), 4U);
  const auto image = makeImage(plainFrames(10), 7);
  image->setFrameCacheSizeMax(3);
  EXPECT_EQ(image->frameCacheSizeCurrent(), 3U);
  image->setFrameCacheSizeMax(9);
  EXPECT_EQ(image->frameCacheSizeCurrent(), 7U);
}

TEST(AnimatedImage, DecodesAheadRoundTheEndAndPurgesTheRest) {
  struct Observer : TavrelAnimatedImageDebugDelegate {
    std::vector<std::size_t> requests;
    std::vector<Indexes> updates;
    void didRequestCachedFrame(TavrelAnimatedImage&, std::size_t index) override { requests.push_back(index); }
    void didUpdateCachedFrames(TavrelAnimatedImage&, const Indexes& indexes) override { updates.push_back(indexes); }
  };
  const LogCapture log;
  const auto observer = std::make_shared<Observer>();
  const auto image = makeImage(plainFrames(10), 5);
  image->setDebugDelegate(observer);
  EXPECT_EQ(image->cachedFrameIndexes(), Indexes{0}) << "the poster";
  EXPECT_EQ(image->imageLazilyCachedAtIndex(8), nullptr) << "not decoded yet";
  EXPECT_EQ(image->frameIndexesToCache(), (Indexes{8, 9, 0, 1, 2}));
  EXPECT_EQ(image->requestedFrameIndexes(), (Indexes{8, 9, 1, 2}));
  finishDecoding(*image);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{8, 9, 0, 1, 2}));
  EXPECT_EQ(lettersOf(*image->imageLazilyCachedAtIndex(8)), "ww/ww");
  EXPECT_TRUE(log.contains("Predrew frame 8 in ", Level::debug));

  image->imageLazilyCachedAtIndex(4);
  finishDecoding(*image);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{4, 5, 6, 7, 8, 0}));
  EXPECT_EQ(observer->requests, (std::vector<std::size_t>{8, 8, 4}));
  RunLoop::main().drain();
  ASSERT_FALSE(observer->updates.empty());
  EXPECT_FALSE(observer->updates.back().contains(1));

  EXPECT_EQ(image->imageLazilyCachedAtIndex(10), nullptr);
  EXPECT_TRUE(log.contains("Skipping requested frame 10 beyond bounds (total frame count: 10) for animated image: ",
                           Level::warning));
  image->setFrameCacheSizeMax(2);
  EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{4, 5, 0}));
}

TEST(AnimatedImage, PlaysEveryFrameWithinItsCache) {
  const auto image = makeImage(plainFrames(30), 4);
  for (std::size_t step = 0; step < 75; ++step) {
    const std::size_t index = step % 30;
    image->imageLazilyCachedAtIndex(index);
    finishDecoding(*image);
    const auto frame = image->imageLazilyCachedAtIndex(index);
    ASSERT_NE(frame, nullptr) << step;
    EXPECT_EQ(lettersOf(*frame).front(), "rgbwk"[index % 5]);
    ASSERT_LE(image->cachedFrameIndexes().size(), 5U) << "four and the poster";
  }
}

/// Time that a test sets: calls wait until it is moved on.
class SetTime {
 public:
  SetTime() {
    TavrelAnimatedImage::setDelayedCallScheduler([this](std::chrono::nanoseconds delay, std::function<void()> call) {
      calls_.emplace(now_ + delay, std::move(call));
    });
  }
  ~SetTime() { TavrelAnimatedImage::setDelayedCallScheduler({}); }

  void advance(std::chrono::nanoseconds duration) {
    const std::chrono::nanoseconds end = now_ + duration;
    while (!calls_.empty() && calls_.begin()->first <= end) {
      now_ = calls_.begin()->first;
      const auto call = std::move(calls_.begin()->second);
      calls_.erase(calls_.begin());
      call();
    }
    now_ = end;
  }

 private:
  std::chrono::nanoseconds now_{0};
  std::multimap<std::chrono::nanoseconds, std::function<void()>> calls_;
};

void warnOfMemory() { NotificationCenter::defaultCenter().post(kApplicationDidReceiveMemoryWarningNotification); }

TEST(AnimatedImage, GrowsAgainAfterThreeMemoryWarningsButNotAfterTheFourth) {
  SetTime time;
  const LogCapture log;
  const auto image = makeImage(plainFrames(10), 5);
  image->imageLazilyCachedAtIndex(3);
  finishDecoding(*image);
  for (std::size_t warning = 1; warning <= 3; ++warning) {
    warnOfMemory();
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
    EXPECT_EQ(image->cachedFrameIndexes(), (Indexes{3, 0}));
    time.advance(1999ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
    time.advance(1ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 2U);
    time.advance(2999ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 2U);
    if (warning == 2) continue;  // the next one comes while this reset is pending
    time.advance(1ms);
    EXPECT_EQ(image->frameCacheSizeMaxInternal(), 0U);
    EXPECT_EQ(image->frameCacheSizeCurrent(), 5U);
  }
  EXPECT_TRUE(log.contains(
      "Attempt setting frame cache size max to 1 (previous was 2) after memory warning #3 for animated image: <",
      Level::debug));
  EXPECT_TRUE(log.contains("Grew frame cache size max to 2 after memory warning for animated image: ", Level::debug));
  EXPECT_TRUE(
      log.contains("Reset frame cache size max (current frame cache size: 5) for animated image: ", Level::debug));
  warnOfMemory();
  time.advance(1h);
  EXPECT_EQ(image->memoryWarningCount(), 4U);
  EXPECT_EQ(image->frameCacheSizeMaxInternal(), 1U);
}

TEST(AnimatedImage, MemoryWarningsBelongToTheMainThread) {
  const auto image = makeImage(plainFrames(2));
  EXPECT_DEATH(std::thread(warnOfMemory).join(), "Received memory warning on non-main thread");
}

TEST(AnimatedImage, NothingThatIsPendingKeepsAnImageAlive) {
  SetTime time;
  auto image = makeImage(plainFrames(10), 5, 200);
  const FLWeakProxy<TavrelAnimatedImage> proxy = image->weakProxy();
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::frameCount), 10U);
  warnOfMemory();
  image->setFrameCacheSizeMax(0);
  image->imageLazilyCachedAtIndex(5);
  image.reset();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !proxy.forwardingTarget(); }, 20s));
  // What is pending meets a dead image and does nothing.
  time.advance(10s);
  RunLoop::main().runFor(5ms);
  warnOfMemory();
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::frameCount), 0U);
  EXPECT_EQ(proxy.forward(&TavrelAnimatedImage::posterImage), nullptr);
  proxy.forward(&TavrelAnimatedImage::setDurationPerLoop, 7);
  EXPECT_EQ(FLWeakProxy<TavrelAnimatedImage>().forward(&TavrelAnimatedImage::description), "");
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

// A player on one thread, somebody who decodes by himself on another, one who comes and goes.
TEST(AnimatedImage, ServesThreadsAtOnce) {
  const auto image = makeImage(plainFrames(20), 5, 32);
  std::thread other([&] {
    for (std::size_t i = 0; i < 60; ++i) {
      const auto frame = image->imageAtIndex(i * 7 % 20);
      ASSERT_EQ(lettersOf(*frame).front(), "rgbwk"[i * 7 % 20 % 5]);
    }
  });
  std::thread comer([&] {
    for (int i = 0; i < 10; ++i) makeImage(plainFrames(3));
  });
  for (std::size_t i = 0; i < 60; ++i) {
    image->imageLazilyCachedAtIndex(i % 20);
    RunLoop::main().runFor(1ms);
  }
  other.join();
  comer.join();
  finishDecoding(*image);
}

}  // namespace
}  // namespace tavrel::test
