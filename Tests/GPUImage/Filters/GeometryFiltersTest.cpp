#include <gtest/gtest.h>

#include <numbers>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;
using Corners = std::array<GLfloat, 8>;

TEST(CropFilter, CutsItsRegionOut) {
  const auto crop = std::make_shared<TavrelGPUImageCropFilter>(Rect{{0.25, 0}, {0.5, 1}});
  EXPECT_EQ(crop->cropTextureCoordinates(), (Corners{0.25, 0, 0.75, 0, 0.25, 1, 0.75, 1}));
  crop->setInputSize({1280, 720}, 0);
  EXPECT_EQ(crop->outputFrameSize(), (Size{640, 720}));

  const Picture source = test::distinctPicture(8, 6);
  EXPECT_EQ(largestDifference(process(source, crop), {4, 6, [&](int x, int y) { return source.at(x + 2, y); }}), 0);
  EXPECT_EQ(largestDifference(process(source, std::make_shared<TavrelGPUImageCropFilter>()), source), 0);
}

// Where the picture is turned sideways, the region's x runs up the source and its y along it; the part is turned then.
TEST(CropFilter, TurnsThePartItCuts) {
  const Picture source = test::distinctPicture(8, 16);
  const Rect region = {{0.125, 0.5}, {0.5, 0.25}};
  const Rect sidewaysRegion = {{0.5, 0.375}, {0.25, 0.5}};  // (y0, 1 - x1)
  for (std::uint64_t value = 0; value < 8; ++value) {
    const auto mode = static_cast<TavrelGPUImageRotationMode>(value);
    const auto turnedCrop = std::make_shared<TavrelGPUImageCropFilter>(region);
    turnedCrop->setInputRotation(mode, 0);
    const auto crop = std::make_shared<TavrelGPUImageCropFilter>(
        TavrelGPUImageRotationSwapsWidthAndHeight(mode) ? sidewaysRegion : region);
    const auto turn = std::make_shared<TavrelGPUImageFilter>();
    turn->setInputRotation(mode, 0);
    crop->addTarget(turn);
    EXPECT_EQ(largestDifference(process(source, turnedCrop), process(source, crop, turn)), 0) << "mode " << value;
  }
}

TEST(CropFilter, ForcedSizesReplaceTheRegionsSize) {
  const auto crop = std::make_shared<TavrelGPUImageCropFilter>(Rect{{0, 0}, {0.5, 0.5}});
  crop->forceProcessingAtSizeRespectingAspectRatio({100, 100});
  crop->setInputSize({200, 100}, 0);
  EXPECT_EQ(crop->outputFrameSize(), (Size{100, 50}));
}

TEST(CropFilterDeathTest, RegionsOutsideThePictureStopTheProgram) {
  for (const Rect& region : {Rect{{0, 0}, {1.5, 1}}, Rect{{-0.1, 0}, {1, 1}}, Rect{{0, 2}, {1, 1}}}) {
    EXPECT_DEATH(TavrelGPUImageCropFilter{region},
                 "newValue.origin.x >= 0 && newValue.origin.x <= 1 && newValue.origin.y >= 0 && newValue.origin.y <= 1 "
                 "&& newValue.size.width >= 0 && newValue.size.width <= 1 && newValue.size.height >= 0 && "
                 "newValue.size.height <= 1");
  }
}

// A connection's rotation comes first, the filter's own on top; for every pair they are two filters in a row.
TEST(RotationFilter, TurnsOnTopOfTheConnectionAndKeepsItsMode) {
  const Picture source = test::distinctPicture(8, 6);
  const auto turnedByConnection = [](std::uint64_t mode) {
    auto filter = std::make_shared<TavrelGPUImageFilter>();
    filter->setInputRotation(static_cast<TavrelGPUImageRotationMode>(mode), 0);
    return filter;
  };
  for (std::uint64_t connection = 0; connection < 8; ++connection) {
    for (std::uint64_t own = 0; own < 8; ++own) {
      const auto rotation =
          std::make_shared<TavrelGPUImageRotationFilter>(static_cast<TavrelGPUImageRotationMode>(own));
      rotation->setInputRotation(static_cast<TavrelGPUImageRotationMode>(connection), 0);
      const Size size = rotation->outputSizeFor({8, 6});
      const auto first = turnedByConnection(connection);
      const auto second = turnedByConnection(own);
      first->addTarget(second);
      const Picture expected = process(source, first, second);
      EXPECT_EQ(largestDifference(process(source, rotation), expected), 0) << connection << " and then " << own;
      EXPECT_EQ(size, (Size{double(expected.width), double(expected.height)}));
    }
  }
  // Connected anew, it still turns.
  const auto producer = std::make_shared<TavrelGPUImageFilter>();
  const auto rotation = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotateLeft);
  for (int i = 0; i < 2; ++i) {
    producer->addTarget(rotation);
    EXPECT_EQ(largestDifference(process(source, producer, rotation),
                                process(source, turnedByConnection(kTavrelGPUImageRotateLeft))),
              0);
    producer->removeAllTargets();
  }
  rotation->forceProcessingAtSize({30, 40});
  rotation->setInputSize({300, 400}, 0);
  EXPECT_EQ(rotation->outputFrameSize(), (Size{30, 22.5})) << "the turned frame's proportions";
}

TEST(RotationFilterDeathTest, OtherModesStopTheProgram) {
  EXPECT_DEATH(TavrelGPUImageRotationFilter(static_cast<TavrelGPUImageRotationMode>(8)), "rotation <= ");
}

TEST(TransformFilter, MatricesFollowFrameAndAnchor) {
  const auto filter = std::make_shared<TavrelGPUImageTransformFilter>();
  filter->setInputSize({720, 1280}, 0);
  auto matrix = filter->orthographicMatrix();
  EXPECT_FLOAT_EQ(matrix[0], 1);
  EXPECT_FLOAT_EQ(matrix[5], 720.0F / 1280);
  EXPECT_FLOAT_EQ(matrix[10], 1);
  EXPECT_FLOAT_EQ(matrix[15], 1);
  for (const std::size_t i : {1, 2, 3, 4, 6, 7, 8, 9, 11, 12, 13, 14}) EXPECT_FLOAT_EQ(matrix[i], 0);

  filter->setAnchorTopLeft(true);
  matrix = filter->orthographicMatrix();
  EXPECT_FLOAT_EQ(matrix[0], 2);
  EXPECT_FLOAT_EQ(matrix[5], 2 * 720.0F / 1280);
  EXPECT_FLOAT_EQ(matrix[3], -1);
  EXPECT_FLOAT_EQ(matrix[7], -1);

  filter->setIgnoreAspectRatio(true);
  EXPECT_FLOAT_EQ(filter->orthographicMatrix()[5], 2);
  filter->setAnchorTopLeft(false);
  matrix = filter->orthographicMatrix();
  EXPECT_FLOAT_EQ(matrix[5], 1);
  EXPECT_FLOAT_EQ(matrix[3], 0);
}

TEST(TransformFilter, TheAffinePartIsAViewOfTheWholeTransform) {
  const auto filter = std::make_shared<TavrelGPUImageTransformFilter>();
  const AffineTransform transform = {0.5, 0.25, -0.25, 0.5, 0.1, -0.2};
  filter->setAffineTransform(transform);
  EXPECT_EQ(filter->affineTransform(), transform);
  EXPECT_EQ(filter->transform3D().m[12], 0.1);
  TavrelGPUMatrix4x4 matrix{};
  TavrelGPUImageTransformFilter::convert3DTransform(filter->transform3D(), matrix);
  EXPECT_EQ(matrix[12], 0.1F);
  filter->setTransform3D({});
  EXPECT_TRUE(filter->affineTransform().isIdentity());
}

TEST(TransformFilter, WithoutATransformThePictureStaysInEveryMode) {
  const Picture source = test::distinctPicture(12, 8);
  for (const bool ignoresAspect : {false, true}) {
    for (const bool anchorsTopLeft : {false, true}) {
      const auto filter = std::make_shared<TavrelGPUImageTransformFilter>();
      filter->setIgnoreAspectRatio(ignoresAspect);
      filter->setAnchorTopLeft(anchorsTopLeft);
      // With the anchor in the corner the doubled scale of the matrix makes the unit square fill the frame.
      EXPECT_LE(largestDifference(process(source, filter), source), 1) << ignoresAspect << anchorsTopLeft;
    }
  }
}

TEST(TransformFilter, MovesScalesAndTurnsInUnitsOfTheWidth) {
  const Picture source = test::distinctPicture(16, 8);
  const auto filter = std::make_shared<TavrelGPUImageTransformFilter>();
  filter->setBackgroundColor(0, 0, 0, 0);
  const auto sourceOrNothing = [&](int x, int y) {
    const bool isInside = x >= 0 && y >= 0 && x < source.width && y < source.height;
    return isInside ? source.at(x, y) : Pixel{0, 0, 0, 0};
  };

  // A quarter to the right is two eighths of the width: coordinates span two units.
  filter->setAffineTransform(AffineTransform::makeTranslation(0.5, 0));
  EXPECT_LE(
      largestDifference(process(source, filter), {16, 8, [&](int x, int y) { return sourceOrNothing(x - 4, y); }}), 1);
  // Upwards in GL is towards higher rows of the picture.
  filter->setAffineTransform(AffineTransform::makeTranslation(0, 0.25));
  EXPECT_LE(
      largestDifference(process(source, filter), {16, 8, [&](int x, int y) { return sourceOrNothing(x, y - 2); }}), 1);
  filter->setAffineTransform(AffineTransform::makeRotation(std::numbers::pi));
  EXPECT_LE(largestDifference(process(source, filter), {16, 8, [&](int x, int y) { return source.at(15 - x, 7 - y); }}),
            1);
}

}  // namespace
}  // namespace tavrel
