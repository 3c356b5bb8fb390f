#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <thread>

#include "Effects/TavrelAnimatedStickerCaptureEffect.h"
#include "Effects/TavrelCaptureEffectChain.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/EffectsComposite.h"
#include "Support/EffectsGif.h"
#include "Support/GraphTestSupport.h"
#include "Support/ThreadTime.h"

namespace tavrel::test {
namespace {

using Effect = TavrelAnimatedStickerCaptureEffect;

class PictureFiles {
 public:
  PictureFiles() : folder_(std::filesystem::temp_directory_path() / ("tavrel-sticker-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~PictureFiles() { std::filesystem::remove_all(folder_); }

  /// `colors` as files of one colour each.
  std::vector<std::filesystem::path> write(const std::string& colors) {
    std::vector<std::filesystem::path> paths;
    for (std::size_t i = 0; i < colors.size(); ++i) paths.push_back(writeOne(i, colors[i]));
    return paths;
  }
  std::filesystem::path writeOne(std::size_t index, char color) {
    return writePicture(index, {2, 2, [&](int, int) { return pixelOf(color); }});
  }
  std::filesystem::path writePicture(std::size_t index, const Picture& picture) {
    auto path = folder_ / (std::to_string(index) + ".png");
    EXPECT_TRUE(ImageDestination::write(straight(picture), path).has_value());
    return path;
  }
  static Pixel pixelOf(char color) {
    return {color == 'r' || color == 'w' ? 255 : 0, color == 'g' || color == 'w' ? 255 : 0,
            color == 'b' || color == 'w' ? 255 : 0, 255};
  }

 private:
  static std::shared_ptr<Image> straight(const Picture& picture) {
    Data bytes;
    for (const Pixel& pixel : picture.pixels) {
      for (const int value : {pixel.r, pixel.g, pixel.b, pixel.a}) bytes.push_back(static_cast<std::uint8_t>(value));
    }
    const auto width = static_cast<std::size_t>(picture.width);
    return Image::create(width, static_cast<std::size_t>(picture.height), 8, 32, width * 4,
                         bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::last), DataProvider::create(bytes));
  }

  std::filesystem::path folder_;
};

/// Shows which picture an effect has, by its first pixel.
class Probe {
 public:
  explicit Probe(std::shared_ptr<Effect> effect) : effect_(std::move(effect)) {
    effect_->picture()->removeAllTargets();
    effect_->picture()->addTarget(filter_);
  }

  char shownAt(double timestamp) {
    effect_->refreshPictureWithTimestamp(timestamp);
    return shown();
  }
  char shown() {
    filter_->useNextFrameForImageCapture();
    effect_->picture()->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the pass is over
    const auto image = filter_->newCGImageFromCurrentlyProcessedOutput();
    if (!image) return '!';
    const Pixel pixel = pictureOf(*image).at(0, 0);
    for (const char letter : std::string("rgbwk")) {
      if (PictureFiles::pixelOf(letter) == pixel) return letter;
    }
    return '?';
  }
  /// Each time is counted from the start of the animation at 100 s.
  std::string shown(const std::vector<double>& times) {
    std::string letters;
    if (effect_->startTimestamp() < 0) shownAt(100);
    for (const double time : times) letters += shownAt(100 + time);
    return letters;
  }

 private:
  std::shared_ptr<Effect> effect_;
  std::shared_ptr<TavrelGPUImageFilter> filter_ = std::make_shared<TavrelGPUImageFilter>();
};

std::shared_ptr<Effect> gifEffect(const std::vector<int>& delays, std::optional<int> loopCount = {}) {
  std::vector<GifFrameSpec> frames;
  for (std::size_t i = 0; i < delays.size(); ++i) {
    const std::string row(2, "rgbwk"[i]);
    frames.push_back({.rows = {row, row}, .delay = delays[i]});
  }
  return Effect::create(makeGif(2, 2, frames, loopCount)).value();
}

TEST(AnimatedSticker, ShowsTheGifFrameThatIsDue) {
  const auto effect = gifEffect({10, 20, 30});
  EXPECT_EQ(effect->startTimestamp(), -1);
  EXPECT_EQ(effect->size(), (Size{2, 2}));
  Probe probe(effect);
  EXPECT_EQ(probe.shown({0, 0.05, 0.15, 0.29, 0.31, 0.59, 0.65, 0.75, 60.95}), "rrggbbrgb");
  EXPECT_EQ(effect->startTimestamp(), 100);
  EXPECT_EQ(probe.shown({0.15, 0.15}), "gg") << "back in time";
  EXPECT_EQ(probe.shown({-0.5}), "r") << "before the start";
  effect->setStartTimestamp(-1);
  EXPECT_EQ(probe.shownAt(107.77), 'r') << "started anew";
  EXPECT_EQ(effect->startTimestamp(), 107.77);
}

TEST(AnimatedSticker, ShowsThePictureFileThatIsDue) {
  PictureFiles files;
  const auto effect = Effect::create(files.write("rgbwk"), 0.1F).value();
  EXPECT_EQ(effect->gifData(), nullptr);
  Probe probe(effect);
  EXPECT_EQ(probe.shown({0, 0.73, 0.05, 0.15, 0.25, 0.35, 0.45, 0.55, 50.31}), "rbrgbwkrw");
}

// The limit holds the last frame only while that one is due in the loop after the last allowed one.
TEST(AnimatedSticker, LoopLimitsHoldTheLastFrameInTheNextLoop) {
  const std::vector<double> times = {0.05, 0.25, 0.55, 0.85, 0.65, 0.75, 0.85, 1.15};
  EXPECT_EQ(Probe(gifEffect({10, 10, 10}, 2)).shown(times), "rbbbrggb");
  EXPECT_EQ(Probe(gifEffect({10, 10, 10}, 0)).shown(times), "rbbbrgbb") << "without end";
  const auto limited = gifEffect({10, 10, 10}, 9);
  limited->setLoopCount(2);
  EXPECT_EQ(Probe(limited).shown(times), "rbbbrggb") << "the effect's own limit";
  limited->setLoopCount(-1);
  EXPECT_EQ(Probe(limited).shown({0.05, 0.75, 0.85, 2.85, 2.95, 3.25}), "rgbggb") << "the GIF's, of 9 loops";

  PictureFiles files;
  const auto pictures = Effect::create(files.write("rgb"), 0.1F).value();
  EXPECT_EQ(Probe(pictures).shown({0.05, 0.35, 9.15, 9.25}), "rrgb") << "without end";
  pictures->setLoopCount(1);
  EXPECT_EQ(Probe(pictures).shown({0.15, 0.55, 0.85}), "ggb");
}

TEST(AnimatedSticker, TouchesThePictureOnlyWhenAnotherFrameIsDue) {
  PictureFiles files;
  auto paths = files.write("rgb");
  paths.push_back("no such picture.png");
  const auto effect = Effect::create(paths, 0.1F).value();
  Probe probe(effect);
  EXPECT_EQ(probe.shown({0.05, 0.15}), "rg");
  files.writeOne(1, 'w');
  EXPECT_EQ(probe.shown({0.15, 0.19}), "gg") << "read again";
  EXPECT_EQ(probe.shown({0.25, 0.35, 0.36}), "bbb") << "the missing one keeps the one before";
  EXPECT_EQ(probe.shown({0.55}), "w");

  const auto gif = gifEffect({10, 10});
  Probe gifProbe(gif);
  EXPECT_EQ(gifProbe.shown({0, 0.15}), "rg");
  gif->picture()->updateWithCGImage(imageOf({2, 2, [](int, int) { return Pixel{0, 0, 255, 255}; }}));
  EXPECT_EQ(gifProbe.shown({0.15, 0.19, 0.25}), "bbr");
}

TEST(AnimatedSticker, LoopCountAndStartMayBeSetWhileFramesRun) {
  const auto gif = gifEffect({10, 10});
  std::thread frames([&] {
    for (int i = 0; i < 200; ++i) gif->prepareFrame(nullptr, {}, MediaTime::make(i, 1000));
  });
  for (int i = 0; i < 200; ++i) {
    gif->setLoopCount(i);
    gif->setStartTimestamp(0);
  }
  frames.join();
  EXPECT_EQ(gif->loopCount(), 199);
  EXPECT_EQ(gif->startTimestamp(), 0);
  EXPECT_EQ(Probe(gif).shownAt(0.05), 'r');
}

/// Has frames of a camera come at this time until the picture is the one wanted.
bool comesToShow(Effect& effect, Probe& probe, char letter, MediaTime time) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (probe.shown() != letter) {
    effect.prepareFrame(nullptr, {}, time);
    std::this_thread::yield();
    if (std::chrono::steady_clock::now() > end) return false;
  }
  return true;
}

TEST(AnimatedSticker, FramesOfACameraNeverWaitForIt) {
  PictureFiles files;
  const auto gif = Effect::create(makePlainGif(500, 500, std::vector<GifFrameSpec>(60))).value();
  const auto pictures = Effect::create(files.write("rgbwk"), 0.1F).value();
  const double decoding = costOf([&] {
    const auto exact = std::dynamic_pointer_cast<Effect>(gif->copy());
    for (int i = 0; i < 60; ++i) exact->refreshPictureWithTimestamp(i / 10.0 + 0.05);
  });
  for (const auto& effect : {gif, pictures}) {
    Probe probe(effect);
    effect->prepareFrame(nullptr, {}, MediaTime::make(0, 100));
    EXPECT_EQ(probe.shown(), 'r');
    const double calls = costOf([&] {
      for (int i = 0; i < 60; ++i) effect->prepareFrame(nullptr, {}, MediaTime::make(i * 10 + 5, 100));
    });
    EXPECT_LT(calls * 4, decoding);
    EXPECT_TRUE(comesToShow(*effect, probe, 'w', MediaTime::make(535, 100))) << "a jump";
    EXPECT_TRUE(comesToShow(*effect, probe, 'g', MediaTime::make(115, 100))) << "back";
  }
  // A chain of one's own waits.
  TavrelCaptureEffectChain chain({gif});
  chain.connect(std::make_shared<TavrelGPUImageFilter>(), {20, 20});
  Probe probe(gif);
  for (const auto& [hundredths, letter] : {std::pair(535, 'w'), {115, 'g'}, {205, 'r'}}) {
    chain.prepareFrame(nullptr, {}, MediaTime::make(hundredths, 100));
    EXPECT_EQ(probe.shown(), letter);
  }
}

TEST(AnimatedSticker, FramesOfACameraTakePicturesAsLargeAsTheyAreDrawn) {
  const auto effect = Effect::create(makePlainGif(400, 200, std::vector<GifFrameSpec>(5))).value();
  Probe probe(effect);
  effect->prepareFrame(nullptr, {}, MediaTime::make(0, 100));
  const auto comesToHave = [&](Size size) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (effect->picture()->outputImageSize() != size && std::chrono::steady_clock::now() < end) {
      effect->prepareFrame(nullptr, {}, MediaTime::make(15, 100));
    }
    return effect->picture()->outputImageSize() == size && probe.shown() == 'g';
  };
  // The same moment throughout.
  for (const auto& [drawn, picture] :
       {std::pair(Size{90, 70}, Size{100, 100}), {{400, 10}, {400, 10}}, {{500, 300}, {400, 200}}}) {
    effect->setDestRect({{3, 5}, drawn});
    effect->makeNodes({640, 480});
    EXPECT_TRUE(comesToHave(picture)) << drawn.width;
  }
  // A chain that waits takes what is due as it is.
  effect->setDestRect({{}, {40, 20}});
  EXPECT_TRUE(effect->refreshPictureWithTimestamp(0.25));
  EXPECT_EQ(effect->picture()->outputImageSize(), (Size{400, 200}));
}

TEST(AnimatedSticker, CopiesPlayTheSameAnimationFromTheStart) {
  const auto effect = gifEffect({10, 20});
  effect->setLoopCount(3);
  effect->setDestRect({{1, 2}, {3, 4}});
  effect->setRotation(1);
  effect->setAttachment(5, "key");
  Probe(effect).shown({0, 0.15});
  const auto copy = std::dynamic_pointer_cast<Effect>(effect->copy());
  EXPECT_EQ(copy->loopCount(), 0);
  EXPECT_EQ(copy->destRect(), Rect{});
  EXPECT_EQ(copy->rotation(), 0);
  EXPECT_EQ(copy->startTimestamp(), -1);
  EXPECT_EQ(copy->gifData(), effect->gifData());
  EXPECT_EQ(std::any_cast<int>(copy->getAttachmentForKey("key")), 5);
  EXPECT_NE(copy->filter(), effect->filter());
  EXPECT_EQ(Probe(copy).shown({0.05, 0.25}), "rg");

  PictureFiles files;
  const auto paths = files.write("rg");
  const auto pictures = Effect::create(paths, 0.5F).value();
  std::filesystem::remove(paths[0]);
  const auto pictureCopy = std::dynamic_pointer_cast<Effect>(pictures->copy());
  EXPECT_EQ(pictureCopy->imagePaths(), paths);
  EXPECT_EQ(pictureCopy->interval(), 0.5F);
  EXPECT_EQ(Probe(pictureCopy).shown({0, 0.7}), "rg");
}

TEST(AnimatedSticker, NeedsAPictureToStartWith) {
  EXPECT_EQ(Effect::create(Data{}).error().description, "No animated GIF data supplied.");
  EXPECT_FALSE(Effect::create(Data{1, 2}).has_value());
  EXPECT_FALSE(Effect::create(std::vector<std::filesystem::path>{}, 1).has_value());
  EXPECT_EQ(Effect::create(std::vector<std::filesystem::path>{"none.png"}, 1).error().description,
            "cannot read none.png: No such file or directory");
  // No time that could be counted for any picture: the first one stays.
  PictureFiles files;
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float interval : {0.0F, -1.0F, infinity, -infinity, std::nanf(""), std::numeric_limits<float>::max()}) {
    const auto effect = Effect::create(files.write("rg"), interval).value();
    EXPECT_EQ(Probe(effect).shown({0, 5}), "rr") << interval;
    for (const double time : {1e300, static_cast<double>(infinity), std::nan("")}) {
      EXPECT_FALSE(effect->refreshPictureWithTimestamp(time));
    }
  }
}

/// What the blend filter gives when `frame` and the sticker's picture have gone through the graph.
Picture composite(const Picture& frame, Effect& effect) {
  const auto camera = std::make_shared<TavrelGPUImagePicture>(imageOf(frame));
  camera->addTarget(effect.filter(), 0);
  effect.setVideoSize({static_cast<double>(frame.width), static_cast<double>(frame.height)});
  effect.filter()->useNextFrameForImageCapture();
  camera->processImage();
  effect.picture()->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the pass is over
  const auto image = effect.filter()->newCGImageFromCurrentlyProcessedOutput();
  camera->removeAllTargets();
  return image ? pictureOf(*image) : Picture();
}

TEST(AnimatedSticker, IsPlacedAndTurnedAsComputed) {
  const Picture frame = {96, 64, [](int x, int y) { return Pixel{x * 2, y * 3, 90, 255}; }};
  // Quarters, one of them half covering and one not at all, so that each turn and mirror shows.
  const auto quartered = [](int width, int height, const std::array<Pixel, 4>& colors) {
    return Picture(width, height,
                   [&](int x, int y) { return colors[(y < height / 2 ? 0U : 2U) + (x < width / 2 ? 0U : 1U)]; });
  };
  const std::array<Pixel, 4> colors = {Pixel{255, 0, 0, 255}, Pixel{0, 200, 0, 128}, Pixel{0, 0, 255, 40},
                                       Pixel{0, 0, 0, 0}};
  PictureFiles files;
  std::vector<std::pair<std::shared_ptr<Effect>, Picture>> stickers;
  for (const int width : {48, 32}) {
    const Picture picture = quartered(width, 32, colors);
    stickers.emplace_back(Effect::create({files.writePicture(0, picture)}, 1).value(), picture);
  }
  std::vector<std::string> rows(32);
  for (std::size_t y = 0; y < rows.size(); ++y) {
    rows[y] = y < 16 ? std::string(24, 'r') + std::string(24, 'g') : std::string(24, '.') + std::string(24, 'b');
  }
  stickers.emplace_back(
      Effect::create(makeGif(48, 32, {{.rows = rows}})).value(),
      quartered(48, 32, {Pixel{255, 0, 0, 255}, Pixel{0, 255, 0, 255}, Pixel{0, 0, 0, 0}, Pixel{0, 0, 255, 255}}));
  for (const auto& [effect, picture] : stickers) {
    for (const Rect& place : {Rect{{0, 0}, {96, 64}}, Rect{{10, 6}, {60, 40}}, Rect{{30, 16}, {60, 34}}}) {
      for (const double rotation : {0.0, 0.5, -1.9, std::acos(-1.0) / 2}) {
        effect->setDestRect(place);
        effect->setRotation(rotation);
        EXPECT_TRUE(isComposite(composite(frame, *effect), frame, picture, place, rotation))
            << picture.width << " wide, at " << place.origin.x << ", " << place.origin.y << " turned by " << rotation;
      }
    }
  }
}

TEST(AnimatedSticker, TellsWhenThePictureIsAnotherOne) {
  const auto effect = gifEffect({10, 10});
  EXPECT_FALSE(effect->refreshPictureWithTimestamp(7)) << "the first one is there already";
  EXPECT_TRUE(effect->refreshPictureWithTimestamp(7.15));
  EXPECT_FALSE(effect->refreshPictureWithTimestamp(7.15));
  EXPECT_TRUE(effect->refreshPictureWithTimestamp(7.25));
  PictureFiles files;
  const auto pictures = Effect::create({files.write("r")[0], "no such picture.png"}, 0.1F).value();
  EXPECT_FALSE(pictures->refreshPictureWithTimestamp(0));
  EXPECT_FALSE(pictures->refreshPictureWithTimestamp(0.15));
}

}  // namespace
}  // namespace tavrel::test
