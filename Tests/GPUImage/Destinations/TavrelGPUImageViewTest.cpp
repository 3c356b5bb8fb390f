#include "GPUImage/Destinations/TavrelGPUImageView.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "Platform/Graphics/GLDrawable.h"
#include "Support/ScalingReference.h"

namespace tavrel::test {
namespace {

std::shared_ptr<TavrelGPUImageView> viewOf(double width, double height) {
  return std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, {width, height}});
}

/// Sends the picture to the view as a source would.
void show(const Picture& source, const std::shared_ptr<TavrelGPUImageView>& view) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(source));
  picture->addTarget(view);
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  picture->removeAllTargets();
}

Picture seen(View& view, double scale = 1) {
  Compositor compositor;
  const auto image = compositor.imageOf(view, {.scale = scale});
  if (!image) ADD_FAILURE() << image.error().description;
  return image ? pictureOf(**image) : Picture();
}

std::array<GLfloat, 8> verticesFor(TavrelGPUImageView& view, Size input) {
  std::array<GLfloat, 8> vertices{};
  view.setInputSize(input, 0);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { vertices = view.imageVertices(); });
  return vertices;
}

/// The source pixel that a viewer expects at (x, y) of the turned picture; from what the modes' names say.
Pixel turned(const Picture& source, TavrelGPUImageRotationMode mode, int x, int y) {
  const int right = source.width - 1;
  const int bottom = source.height - 1;
  switch (mode) {
    case kTavrelGPUImageNoRotation: return source.at(x, y);
    case kTavrelGPUImageRotateLeft: return source.at(right - y, x);
    case kTavrelGPUImageRotateRight: return source.at(y, bottom - x);
    case kTavrelGPUImageFlipVertical: return source.at(x, bottom - y);
    case kTavrelGPUImageFlipHorizontal: return source.at(right - x, y);
    case kTavrelGPUImageRotateRightFlipVertical: return source.at(y, x);
    case kTavrelGPUImageRotateRightFlipHorizontal: return source.at(right - y, bottom - x);
    case kTavrelGPUImageRotate180: return source.at(right - x, bottom - y);
  }
  return {};
}

TEST(TavrelGPUImageView, computesTheScalesOfEachFillMode) {
  const auto view = viewOf(375, 667);
  EXPECT_EQ(view->fillMode(), kTavrelGPUImageFillModePreserveAspectRatio);
  EXPECT_EQ(view->maximumOutputSize(), (Size{375, 667}));
  EXPECT_EQ(view->sizeInPixels(), (Size{375, 667}));
  struct Case {
    TavrelGPUImageFillModeType mode;
    GLfloat width, height;
  };
  for (const Case& c : {Case{kTavrelGPUImageFillModeStretch, 1, 1},
                        Case{kTavrelGPUImageFillModePreserveAspectRatio, 1, 210.9375F / 667},
                        Case{kTavrelGPUImageFillModePreserveAspectRatioAndFill, 667 / 210.9375F, 1}}) {
    view->setFillMode(c.mode);
    const auto vertices = verticesFor(*view, {1280, 720});
    const GLfloat expected[] = {-c.width, -c.height, c.width, -c.height, -c.width, c.height, c.width, c.height};
    for (std::size_t i = 0; i < 8; ++i) EXPECT_NEAR(vertices[i], expected[i], 1e-5) << c.mode << ' ' << i;
  }
  view->setFillMode(kTavrelGPUImageFillModePreserveAspectRatio);
  view->setInputRotation(kTavrelGPUImageRotateRight, 0);
  const auto upright = verticesFor(*view, {1280, 720});  // 720 × 1280 now
  EXPECT_NEAR(upright[2], 1.0, 1e-5);
  EXPECT_NEAR(upright[5], 375.0 / 720 * 1280 / 667, 1e-5);
}

TEST(TavrelGPUImageView, showsEveryRotationUpright) {
  const Picture source = distinctPicture(12, 8);
  for (std::uint64_t value = 0; value < 8; ++value) {
    const auto mode = static_cast<TavrelGPUImageRotationMode>(value);
    const bool swaps = TavrelGPUImageRotationSwapsWidthAndHeight(mode);
    const auto view = viewOf(swaps ? 8 : 12, swaps ? 12 : 8);
    view->setInputRotation(mode, 0);
    show(source, view);
    const Picture expected(swaps ? 8 : 12, swaps ? 12 : 8, [&](int x, int y) { return turned(source, mode, x, y); });
    EXPECT_LE(largestDifference(seen(*view), expected), 1) << "mode " << value;
  }
  EXPECT_EQ(TavrelGPUImageView::textureCoordinatesForRotation(static_cast<TavrelGPUImageRotationMode>(8)), nullptr);
}

TEST(TavrelGPUImageView, showsTheMeanOfWhatItReduces) {
  const Picture source = zonePlate(240, 160), expected = scaled(source, 60, 40, triangle, false);
  for (const double height : {40.0, 64.0}) {
    const auto view = viewOf(60, height);
    show(source, view);
    const Picture picture = seen(*view);
    const int top = (picture.height - 40) / 2;
    const Picture middle(60, 40, [&](int x, int y) { return picture.at(x, y + top); });
    EXPECT_LE(largestDifference(middle, expected), 2) << height;
  }
  const auto upright = viewOf(40, 60);
  upright->setInputRotation(kTavrelGPUImageRotateRight, 0);
  show(source, upright);
  const Picture onItsSide(40, 60, [&](int x, int y) { return turned(expected, kTavrelGPUImageRotateRight, x, y); });
  EXPECT_LE(largestDifference(seen(*upright), onItsSide), 2);
}

TEST(TavrelGPUImageView, fitsPicturesByFillMode) {
  // Left half red, right half green, the lower quarter blue; magnified without a blend inside its areas.
  const Picture source(16, 8, [](int x, int y) {
    if (y >= 6) return Pixel{0, 0, 255, 255};
    return x < 8 ? Pixel{255, 0, 0, 255} : Pixel{0, 255, 0, 255};
  });
  struct Case {
    TavrelGPUImageFillModeType mode;
    Pixel top, left, right, low, bottom;
  };
  const Pixel red = {255, 0, 0, 255};
  const Pixel green = {0, 255, 0, 255};
  const Pixel blue = {0, 0, 255, 255};
  const Pixel background = {51, 102, 153, 255};
  for (const Case& c :
       {Case{kTavrelGPUImageFillModeStretch, red, red, green, blue, blue},
        Case{kTavrelGPUImageFillModePreserveAspectRatio, background, red, green, background, background},
        Case{kTavrelGPUImageFillModePreserveAspectRatioAndFill, red, red, green, blue, blue}}) {
    const auto view = viewOf(64, 64);
    view->setBackgroundColorRed(0.2F, 0.4F, 0.6F, 1);
    view->setFillMode(c.mode);
    show(source, view);
    const Picture picture = seen(*view);
    EXPECT_EQ(picture.at(2, 2), c.top) << c.mode;
    EXPECT_EQ(picture.at(2, 30), c.left) << c.mode;
    EXPECT_EQ(picture.at(61, 30), c.right) << c.mode;
    EXPECT_EQ(picture.at(40, 52), c.low) << c.mode;
    EXPECT_EQ(picture.at(61, 61), c.bottom) << c.mode;
    if (c.mode == kTavrelGPUImageFillModePreserveAspectRatio) {
      EXPECT_EQ(picture.at(40, 44), blue) << "the picture's lower quarter";
      EXPECT_EQ(picture.at(40, 15), background);
      EXPECT_EQ(picture.at(40, 17), green);
    }
  }
}

TEST(TavrelGPUImageView, hasADisplayFramebufferForEachSize) {
  const auto view = std::make_shared<TavrelGPUImageView>();
  const Picture source = distinctPicture(8, 8);
  show(source, view);  // nowhere to go, nothing kept
  view->layoutIfNeeded();
  EXPECT_EQ(view->sizeInPixels(), Size{});

  view->setFrame({{0, 0}, {8, 8}});
  view->layoutIfNeeded();
  EXPECT_EQ(view->sizeInPixels(), (Size{8, 8}));
  show(source, view);
  EXPECT_LE(largestDifference(seen(*view), source), 1);

  // A frame of the earlier size is never stretched: it stays as it was, about the centre.
  view->setFrame({{0, 0}, {16, 8}});
  const Picture stale = seen(*view);
  EXPECT_EQ(view->sizeInPixels(), (Size{16, 8}));
  EXPECT_EQ(stale.at(0, 0), (Pixel{0, 0, 0, 0}));
  EXPECT_EQ(stale.at(4, 0), source.at(0, 0));
  EXPECT_EQ(stale.at(11, 7), source.at(7, 7));
  view->setFrame({{0, 0}, {4, 8}});
  EXPECT_EQ(seen(*view).at(0, 0), source.at(2, 0)) << "cut off";

  view->setContentScaleFactor(2);
  EXPECT_EQ(view->sizeInPixels(), (Size{8, 16}));
  EXPECT_EQ(view->maximumOutputSize(), (Size{8, 16}));
}

TEST(TavrelGPUImageView, showsTheNewestFrameAndGivesAllFramebuffersBack) {
  const auto view = viewOf(4, 4);
  std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>> framebuffers;
  std::uint64_t lastSeen = 0;
  const auto drawable = std::static_pointer_cast<DrawableLayer>(view->layer())->drawable();
  std::vector<std::shared_ptr<const GLDrawableFrame>> kept;  // a display that is slow to let go
  for (int i = 0; i < 40; ++i) {
    show(Picture(4, 4, [&](int, int) { return Pixel{i * 6, 255 - i * 6, i, 255}; }), view);
    const auto frame = drawable->latestFrame();
    EXPECT_GT(frame->sequenceNumber(), lastSeen);
    lastSeen = frame->sequenceNumber();
    if (i % 3 == 0) kept.push_back(frame);
    if (kept.size() > 6) kept.erase(kept.begin());
    if (i % 4 != 0) continue;
    const Pixel expected = {i * 6, 255 - i * 6, i, 255};
    EXPECT_LE(largestDifference(seen(*view), Picture(4, 4, [&](int, int) { return expected; })), 1) << i;
  }

  const auto source = std::make_shared<TavrelGPUImagePicture>(imageOf(distinctPicture(4, 4)));
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  std::weak_ptr<TavrelGPUImageFramebuffer> passed;
  filter->setFrameProcessingCompletionBlock(
      [&](TavrelGPUImageOutput& output, MediaTime) { passed = output.framebufferForOutput(); });
  source->addTarget(filter);
  filter->addTarget(view);
  source->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const auto framebuffer = passed.lock();
    ASSERT_TRUE(framebuffer);
    EXPECT_EQ(framebuffer->framebufferReferenceCount(), 0) << "unlocked after drawing";
  });
}

TEST(TavrelGPUImageView, swapsAFewTexturesInTheSteadyState) {
  const auto view = viewOf(16, 16);
  const auto drawable = std::static_pointer_cast<DrawableLayer>(view->layer())->drawable();
  std::set<GLuint> names;
  Compositor compositor;
  for (int i = 0; i < 30; ++i) {
    show(distinctPicture(16, 16), view);
    names.insert(drawable->latestFrame()->texture());
    ASSERT_TRUE(compositor.imageOf(*view));
  }
  EXPECT_LE(names.size(), 4U);
}

TEST(TavrelGPUImageView, mayBeDestroyedOnAnyThreadWhileItsPictureIsShown) {
  auto view = viewOf(8, 8);
  const Picture source = distinctPicture(8, 8);
  show(source, view);
  const auto layer = std::static_pointer_cast<DrawableLayer>(view->layer());
  std::thread([&] { view.reset(); }).join();
  View root({{0, 0}, {8, 8}});
  root.layer()->addSublayer(layer);
  EXPECT_LE(largestDifference(seen(root), source), 1);

  view = viewOf(8, 8);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { view.reset(); });
}

TEST(TavrelGPUImageView, layoutAndFramesRunAtTheSameTime) {
  const auto view = viewOf(20, 20);
  std::atomic<bool> isOver = false;
  std::thread source([&] {
    while (!isOver) show(distinctPicture(20, 20), view);
  });
  Compositor compositor;
  for (int i = 0; i < 60; ++i) {
    view->setFrame({{0, 0}, {20.0 + i % 7, 20.0 + i % 3}});
    view->setFillMode(static_cast<TavrelGPUImageFillModeType>(i % 3));
    ASSERT_TRUE(compositor.imageOf(*view));
  }
  isOver = true;
  source.join();
  EXPECT_EQ(view->sizeInPixels(), (Size{20.0 + 59 % 7, 20.0 + 59 % 3}));
}

}  // namespace
}  // namespace tavrel::test
