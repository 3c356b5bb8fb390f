#include "Model/StickerPlace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "Model/Layout.h"

namespace tavrel::studio {
namespace {

constexpr double kTolerance = 1e-9;
constexpr double kReach = 5;
const StickerPlace kPlace = {{{100, 50}, {80, 40}}, 0};

void expectNear(const Rect& actual, const Rect& expected) {
  EXPECT_NEAR(actual.origin.x, expected.origin.x, kTolerance);
  EXPECT_NEAR(actual.origin.y, expected.origin.y, kTolerance);
  EXPECT_NEAR(actual.size.width, expected.size.width, kTolerance);
  EXPECT_NEAR(actual.size.height, expected.size.height, kTolerance);
}

TEST(StickerPlaceTest, WhatTheMouseTakesHoldOf) {
  EXPECT_EQ(gripAt(kPlace, {140, 70}, kReach), StickerGrip::body);
  EXPECT_EQ(gripAt(kPlace, {103, 88}, kReach), StickerGrip::corner);
  EXPECT_EQ(gripAt(kPlace, {140, 50 - kTurningHandle * kReach}, kReach), StickerGrip::handle);
  EXPECT_EQ(gripAt(kPlace, {90, 70}, kReach), StickerGrip::none);
  EXPECT_EQ(gripAt(kPlace, {101, 51}, 0), StickerGrip::body) << "without handles";

  // Upright now: what was its right side is below.
  const StickerPlace turned = {kPlace.rectangle, std::numbers::pi / 2};
  EXPECT_EQ(gripAt(turned, {140, 105}, kReach), StickerGrip::body);
  EXPECT_EQ(gripAt(turned, {110, 70}, kReach), StickerGrip::none);
  EXPECT_EQ(gripAt(turned, {160 + kTurningHandle * kReach, 70}, kReach), StickerGrip::handle)
      << "turned clockwise, the upper edge is on the right";
}

TEST(StickerPlaceTest, DraggingMovesSizesAndTurns) {
  expectNear(dragged(kPlace, StickerGrip::body, {110, 60}, {120, 55}, false).rectangle, {{110, 45}, {80, 40}});

  const StickerPlace doubled = dragged(kPlace, StickerGrip::corner, {180, 90}, {220, 110}, false);
  expectNear(doubled.rectangle, {{60, 30}, {160, 80}});
  const StickerPlace smallest = dragged(kPlace, StickerGrip::corner, {180, 90}, {140, 70}, false);
  expectNear(smallest.rectangle, {{132, 66}, {16, 8}});

  const StickerPlace turned = dragged(kPlace, StickerGrip::handle, {140, 30}, {180, 70}, false);
  EXPECT_NEAR(turned.radians, std::numbers::pi / 2, kTolerance) << "clockwise";
  expectNear(turned.rectangle, kPlace.rectangle);
  const StickerPlace snapped = dragged(kPlace, StickerGrip::handle, {140, 30}, {160, 34}, true);
  EXPECT_NEAR(snapped.radians, std::numbers::pi / 6, kTolerance);
}

TEST(StickerPlaceTest, GoesAlongWithTheFrameAndFitsOnIt) {
  expectNear(rescaled(kPlace, {640, 360}, {1280, 720}).rectangle, {{200, 100}, {160, 80}});
  // Keeps its proportions on a frame of other ones, with its centre at the same share.
  expectNear(rescaled(kPlace, {640, 480}, {1280, 480}).rectangle, {{240, 50}, {80, 40}});

  expectNear(placeForDrop({100, 50}, {1280, 720}, {600, 300}).rectangle, {{550, 275}, {100, 50}});
  expectNear(placeForDrop({3000, 1000}, {1200, 900}, {600, 450}).rectangle, {{400, 384}, {400, 133}});
}

TEST(LayoutTest, ThePictureFillsWhatThePanelsLeave) {
  const Size frame = {1280, 720};
  const Layout open = Layout::of({800, 500}, frame, 15, true);
  EXPECT_LE(open.side.maxX(), open.picture.minX());
  EXPECT_LE(open.picture.maxY(), open.bar.minY());
  EXPECT_GE(open.picture.size.width, 400) << "large, in a small window too";
  EXPECT_NEAR(open.picture.size.width / open.picture.size.height, 16.0 / 9, 0.02);

  const Layout folded = Layout::of({1280, 720}, frame, 15, false);
  EXPECT_EQ(folded.picture, (Rect{{0, 0}, {1280, 720}}));

  for (const bool isMirrored : {false, true}) {
    const Point place = open.toFrame(open.toWindow({320, 500}, frame, isMirrored), frame, isMirrored);
    EXPECT_NEAR(place.x, 320, kTolerance);
    EXPECT_NEAR(place.y, 500, kTolerance);
  }
  EXPECT_NEAR(folded.toWindow({0, 0}, frame, true).x, 1280, kTolerance);
}

}  // namespace
}  // namespace tavrel::studio
