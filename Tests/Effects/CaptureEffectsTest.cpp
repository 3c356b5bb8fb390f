#include <gtest/gtest.h>

#include "Effects/TavrelExternalFilterCaptureEffect.h"
#include "Effects/TavrelFaceBeautyCaptureEffect.h"
#include "Effects/TavrelImageStickerCaptureEffect.h"
#include "Effects/TavrelLUTFilterCaptureEffect.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

template <typename Effect>
std::shared_ptr<Effect> copyOf(const Effect& effect) {
  auto copy = std::dynamic_pointer_cast<Effect>(effect.copy());
  EXPECT_NE(copy, nullptr) << "another class";
  return copy;
}

TEST(CaptureEffects, BeautyLevelsStartHalfAndCopyTheBrightOneTwice) {
  TavrelFaceBeautyCaptureEffect effect;
  EXPECT_EQ(std::vector({effect.beautyLevel(), effect.brightLevel(), effect.toneLevel()}), std::vector(3, 0.5));
  effect.setBeautyLevel(0.2);
  effect.setBrightLevel(0.8);
  effect.setToneLevel(0.4);
  const auto copy = copyOf(effect);
  EXPECT_EQ(copy->beautyLevel(), 0.8);
  EXPECT_EQ(copy->brightLevel(), 0.8);
  EXPECT_EQ(copy->toneLevel(), 0.4);
}

TEST(CaptureEffects, CopiesShareImagesAndHaveTheirOwnValues) {
  TavrelImageStickerCaptureEffect sticker;
  EXPECT_EQ(sticker.destRect(), Rect{});
  sticker.setImage(imageOf(distinctPicture(2, 2)));
  sticker.setDestRect({{1, 2}, {3, 4}});
  sticker.setRotation(0.5);
  const auto copy = copyOf(sticker);
  EXPECT_EQ(copy->image(), sticker.image());
  EXPECT_EQ(copy->destRect(), (Rect{{1, 2}, {3, 4}}));
  EXPECT_EQ(copy->rotation(), 0.5);
  copy->setRotation(1);
  EXPECT_EQ(sticker.rotation(), 0.5);

  TavrelLUTFilterCaptureEffect table;
  EXPECT_EQ(table.image(), nullptr);
  table.setImage(sticker.image());
  EXPECT_EQ(copyOf(table)->image(), sticker.image());
}

TEST(CaptureEffects, AttachmentsSurviveACopyAndGoTheirOwnWay) {
  TavrelLUTFilterCaptureEffect effect;
  const auto shared = std::make_shared<int>(1);
  effect.setAttachment(shared, "shared");
  effect.setAttachment(std::string("x"), "text");
  effect.setAttachment(std::string("y"), "text");
  const auto copy = copyOf(effect);
  EXPECT_EQ(std::any_cast<std::shared_ptr<int>>(copy->getAttachmentForKey("shared")), shared);
  copy->removeAttachmentForKey("text");
  copy->setAttachment(7, "new");
  EXPECT_FALSE(copy->getAttachmentForKey("text").has_value());
  EXPECT_EQ(std::any_cast<std::string>(effect.getAttachmentForKey("text")), "y");
  EXPECT_FALSE(effect.getAttachmentForKey("new").has_value());
  effect.setAttachment({}, "text");
  EXPECT_EQ(effect.attachments().size(), 1U);
  effect.removeAllAttachments();
  EXPECT_TRUE(effect.attachments().empty());
  EXPECT_EQ(copy->attachments().size(), 2U);
}

TEST(CaptureEffects, EverySetIsToldToTheObserversOfThatProperty) {
  TavrelFaceBeautyCaptureEffect effect;
  std::vector<std::string> seen;
  const auto observe = [&](const char* key) {
    return effect.addObserver(
        key, [&](std::string_view changed) { seen.push_back(fmt::format("{} {}", changed, effect.toneLevel())); });
  };
  const auto token = observe("toneLevel");
  observe("brightLevel");
  effect.setToneLevel(0.25);
  effect.setToneLevel(0.25);
  effect.setBrightLevel(1);
  effect.setBeautyLevel(1);
  copyOf(effect)->setToneLevel(9);
  effect.removeObserver(token);
  effect.setToneLevel(0.75);
  EXPECT_EQ(seen, (std::vector<std::string>{"toneLevel 0.25", "toneLevel 0.25", "brightLevel 0.25"}));

  // An observer that removes another one on the way.
  KeyValueObserving::ObserverToken second = 0;
  effect.addObserver("beautyLevel", [&](std::string_view) { effect.removeObserver(second); });
  second = effect.addObserver("beautyLevel", [&](std::string_view) { ADD_FAILURE() << "was removed"; });
  effect.setBeautyLevel(0);

  TavrelImageStickerCaptureEffect sticker;
  std::vector<std::string> keys;
  for (const char* key : {"image", "destRect", "rotation"}) {
    sticker.addObserver(key, [&](std::string_view changed) { keys.emplace_back(changed); });
  }
  sticker.setRotation(1);
  sticker.setImage(nullptr);
  sticker.setDestRect({});
  EXPECT_EQ(keys, (std::vector<std::string>{"rotation", "image", "destRect"}));
}

/// Appends its number to the first pixel's bytes; the second one gives a new buffer.
template <int Number>
class NumberFilter : public TavrelExternalFilter {
 public:
  static std::shared_ptr<NumberFilter> sharedInstance() {
    static const auto instance = std::make_shared<NumberFilter>();
    return instance;
  }
  std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                  const SampleTiming& timing) override {
    received.emplace_back(pixelBuffer, timing.presentationTimeStamp);
    return Number == 2 ? result : pixelBuffer;
  }
  std::vector<std::pair<std::shared_ptr<PixelBuffer>, MediaTime>> received;
  std::shared_ptr<PixelBuffer> result;
};

TEST(CaptureEffects, ExternalFiltersPassTheirBufferOn) {
  const auto camera = pixelBufferOf(distinctPicture(4, 4));
  const auto replacement = pixelBufferOf(distinctPicture(4, 4));
  NumberFilter<2>::sharedInstance()->result = replacement;
  std::vector<TavrelExternalFilterCaptureEffect> effects(4);
  effects[0].setExternalFilterClass(externalFilterClassOf<NumberFilter<2>>());
  effects[1].setExternalFilterClass(externalFilterClassOf<NumberFilter<1>>());
  static constexpr TavrelExternalFilterClass kEmpty = {[]() -> std::shared_ptr<TavrelExternalFilter> { return {}; }};
  effects[2].setExternalFilterClass(&kEmpty);
  const SampleTiming timing = {.duration = {}, .presentationTimeStamp = MediaTime::make(7, 30), .decodeTimeStamp = {}};
  std::shared_ptr<PixelBuffer> buffer = camera;
  for (auto& effect : effects) buffer = effect.prepareFrame(buffer, timing, MediaTime::make(8, 30));
  EXPECT_EQ(buffer, replacement);
  ASSERT_EQ(NumberFilter<2>::sharedInstance()->received.size(), 1U);
  EXPECT_EQ(NumberFilter<2>::sharedInstance()->received[0].first, camera);
  ASSERT_EQ(NumberFilter<1>::sharedInstance()->received.size(), 1U);
  EXPECT_EQ(NumberFilter<1>::sharedInstance()->received[0].first, replacement);
  EXPECT_EQ(NumberFilter<1>::sharedInstance()->received[0].second, MediaTime::make(7, 30));
  EXPECT_EQ(copyOf(effects[1])->externalFilterClass(), externalFilterClassOf<NumberFilter<1>>());
  // A filter without a result leaves the frame as it is.
  NumberFilter<2>::sharedInstance()->result = nullptr;
  EXPECT_EQ(effects[0].prepareFrame(camera, timing, MediaTime::invalid()), camera);
}

}  // namespace
}  // namespace tavrel::test
