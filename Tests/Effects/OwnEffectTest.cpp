#include <gtest/gtest.h>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

/// Brightens pixel buffers and frames, and halves the height.
class Halving : public TavrelCaptureEffect {
 public:
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Halving>(*this); }
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override {
    frameSizes.push_back(frameSize);
    return {.filters = {std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipVertical),
                        std::make_shared<TavrelGPUImageCropFilter>(Rect{{0, 0}, {1, 0.5}})},
            .pictures = {}};
  }
  Size sizeAfter(Size frameSize) const override { return {frameSize.width, frameSize.height / 2}; }
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming&,
                                            MediaTime frameTime) override {
    frameTimes.push_back(frameTime);
    return pixelBuffer;
  }
  void change(std::string_view property) { announceChange(property); }

  std::vector<Size> frameSizes;
  std::vector<MediaTime> frameTimes;
};

/// Has none of the optional functions.
class Nothing : public TavrelCaptureEffect {
 public:
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Nothing>(*this); }
};

Picture through(const Picture& source, TavrelCaptureEffectChain& chain) {
  const auto first = std::make_shared<TavrelGPUImageFilter>();
  const auto last = std::make_shared<TavrelGPUImageFilter>();
  chain.connect(first, {double(source.width), double(source.height)})->addTarget(last);
  return process(source, first, last);
}

TEST(OwnEffect, DrawsInAChainAmongOthersAndTellsItsSize) {
  const auto halving = std::make_shared<Halving>();
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(imageOf({2, 2, [](int, int) { return Pixel{255, 0, 0, 255}; }}));
  sticker->setDestRect({{2, 1}, {2, 2}});
  const auto turn = std::make_shared<TavrelFilterCaptureEffect>(
      std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotateLeft));
  TavrelCaptureEffectChain chain({std::make_shared<Nothing>(), halving, sticker, turn, halving});

  const Picture source = distinctPicture(8, 12);
  EXPECT_EQ(chain.sizeAfter({8, 12}), (Size{6, 4}));
  EXPECT_TRUE(chain.turnsSideways());
  const Picture result = through(source, chain);
  EXPECT_EQ(halving->frameSizes, (std::vector<Size>{{8, 12}, {6, 8}}));
  // The lower half upside down, the sticker on it; turned left; and the lower half of that, upside down.
  const Picture stickered(8, 6, [&](int x, int y) {
    return x >= 2 && x < 4 && y >= 1 && y < 3 ? Pixel{255, 0, 0, 255} : source.at(x, 11 - y);
  });
  EXPECT_EQ(largestDifference(result, {6, 4, [&](int x, int y) { return stickered.at(7 - (7 - y), x); }}), 0);

  EXPECT_EQ(chain.prepareFrame(nullptr, {}, MediaTime::make(3, 4)), nullptr);
  EXPECT_EQ(halving->frameTimes, (std::vector<MediaTime>{MediaTime::make(3, 4), MediaTime::make(3, 4)}));
  EXPECT_FALSE(TavrelCaptureEffectChain({halving}).turnsSideways());
  EXPECT_TRUE(TavrelCaptureEffectChain({}).effects().empty());
}

TEST(OwnEffect, ChangesAreAnnouncedToItsObserversOnly) {
  Halving effect;
  std::vector<std::string> seen;
  const auto token = effect.addChangeObserver([&](std::string_view property) { seen.emplace_back(property); });
  effect.change("one");
  const auto copy = std::dynamic_pointer_cast<Halving>(effect.copy());
  copy->change("of the copy");
  effect.removeChangeObserver(token);
  effect.change("two");
  EXPECT_EQ(seen, std::vector<std::string>{"one"});
  EXPECT_FALSE(effect.applyChange("one", {})) << "nodes are made anew unless a kind says otherwise";
}

TEST(OwnEffect, BuiltInKindsAnnounceWhatTheirNodesDependOn) {
  std::vector<std::string> seen;
  const auto observe = [&](TavrelCaptureEffect& effect) {
    effect.addChangeObserver([&](std::string_view property) { seen.emplace_back(property); });
  };
  TavrelFaceBeautyCaptureEffect beauty;
  TavrelImageStickerCaptureEffect sticker;
  TavrelLUTFilterCaptureEffect table;
  TavrelFilterCaptureEffect own;
  for (TavrelCaptureEffect* const effect :
       {static_cast<TavrelCaptureEffect*>(&beauty), static_cast<TavrelCaptureEffect*>(&sticker),
        static_cast<TavrelCaptureEffect*>(&table), static_cast<TavrelCaptureEffect*>(&own)}) {
    observe(*effect);
  }
  const TavrelCaptureEffectNodes nodes = beauty.makeNodes({8, 8});
  const auto& filter = dynamic_cast<TavrelGPUImageBeautifyFilter&>(*nodes.filters.front());
  beauty.setBeautyLevel(0.1);
  beauty.setBrightLevel(0.2);
  EXPECT_TRUE(beauty.applyChange("brightLevel", nodes));
  EXPECT_EQ(filter.brightLevel(), 0.2);
  EXPECT_EQ(filter.beautyLevel(), 0.5) << "each level by itself";
  beauty.setToneLevel(0.3);
  sticker.setRotation(1);
  EXPECT_FALSE(sticker.applyChange("rotation", {}));
  sticker.setDestRect({});
  sticker.setImage(nullptr);
  table.setImage(nullptr);
  own.setFilter(nullptr);
  sticker.setAttachment(1, "x");
  EXPECT_EQ(seen, (std::vector<std::string>{"beautyLevel", "brightLevel", "toneLevel", "rotation", "destRect", "image",
                                            "image", "filter"}));
  for (TavrelCaptureEffect* const empty :
       {static_cast<TavrelCaptureEffect*>(&sticker), static_cast<TavrelCaptureEffect*>(&table),
        static_cast<TavrelCaptureEffect*>(&own)}) {
    EXPECT_TRUE(empty->makeNodes({8, 8}).filters.empty());
    EXPECT_EQ(empty->sizeAfter({8, 6}), (Size{8, 6}));
  }
}

}  // namespace
}  // namespace tavrel::test
