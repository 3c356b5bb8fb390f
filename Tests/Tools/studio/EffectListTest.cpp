#include "Model/EffectList.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/GraphTestSupport.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::studio {
namespace {

class EffectListTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    const test::Picture picture(40, 20, [](int, int) { return test::Pixel{255, 0, 0, 255}; });
    ASSERT_TRUE(ImageDestination::write(test::imageOf(picture), file("red.png")).has_value());
    ASSERT_TRUE(ImageDestination::write(TavrelLookupIdentityImage(), file("table.png")).has_value());
  }
  std::string kinds() const {
    std::string all;
    for (const auto& effect : list.all()) all += std::string(effect->isOn() ? "+" : "-") + effect->kind() + " ";
    return all;
  }

  EffectList list;
};

TEST_F(EffectListTest, KeepsItsOrderAndTellsWhenTheCameraNeedsAnotherChain) {
  int changes = 0;
  list.setChangeHandler([&] { ++changes; });
  list.add(makeBeauty());
  list.add(makeBlur());
  list.add(openTable(file("table.png")).value());
  EXPECT_EQ(changes, 3);
  list.move(2, 0);
  EXPECT_EQ(kinds(), "+table +beauty +blur ");
  list.move(0, 1);
  EXPECT_EQ(kinds(), "+beauty +table +blur ");
  list.setOn(1, false);
  EXPECT_EQ(kinds(), "+beauty -table +blur ");
  EXPECT_EQ(list.captureEffects().size(), 2U);
  EXPECT_EQ(list.captureEffects()[1], list.all()[2]->captureEffect());
  changes = 0;
  list.all()[0]->setLevel(0, 0.9);
  list.move(1, 9);
  list.setOn(1, false);
  EXPECT_EQ(changes, 0) << "a slider acts by itself, and what changes nothing is nothing";
  EXPECT_EQ(std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(list.captureEffects()[0])->beautyLevel(), 0.9);
  list.all()[0]->setLevel(0, 7);
  EXPECT_EQ(list.all()[0]->levels()[0].value, 1);
  list.remove(0);
  EXPECT_EQ(kinds(), "-table +blur ");
}

TEST_F(EffectListTest, ComesBackWithPlacesForAnotherFrameSize) {
  list.setFrameSize({640, 360});
  list.add(makeBeauty());
  list.all()[0]->setLevel(1, 0.75);
  const auto sticker = StickerEffect::open(file("red.png")).value();
  EXPECT_EQ(sticker->pictureSize(), (Size{40, 20}));
  sticker->setPlace({{{100, 50}, {80, 40}}, 0.5});
  list.add(sticker);
  list.setOn(1, false);

  EffectList again;
  again.setFrameSize({1280, 720});
  again.restore(list.json(), [](const std::string& fault) { ADD_FAILURE() << fault; });
  ASSERT_EQ(again.all().size(), 2U);
  EXPECT_EQ(again.all()[0]->levels()[1].value, 0.75);
  EXPECT_FALSE(again.all()[1]->isOn());
  EXPECT_FALSE(again.all()[0]->place());
  ASSERT_TRUE(again.all()[1]->place());
  EXPECT_EQ(*again.all()[1]->place(), (StickerPlace{{{200, 100}, {160, 80}}, 0.5}));
}

TEST_F(EffectListTest, WhatIsGoneOrDamagedIsSaidAndTheRestComesBack) {
  list.add(StickerEffect::open(file("red.png")).value());
  list.add(makeBlur());
  const nlohmann::json json = list.json();
  std::filesystem::remove(file("red.png"));
  EffectList again;
  std::vector<std::string> faults;
  again.restore(json, [&](const std::string& fault) { faults.push_back(fault); });
  ASSERT_EQ(faults.size(), 1U);
  EXPECT_NE(faults[0].find("red.png"), std::string::npos) << faults[0];
  ASSERT_EQ(again.all().size(), 1U);
  EXPECT_STREQ(again.all()[0]->kind(), "blur");
  again.restore({{"list", 3}}, [&](const std::string& fault) { faults.push_back(fault); });
  EXPECT_EQ(faults.size(), 2U);
  EXPECT_FALSE(StickerEffect::open(file("table.cube")));
  EXPECT_FALSE(openTable(file("red.png")));
}

}  // namespace
}  // namespace tavrel::studio
