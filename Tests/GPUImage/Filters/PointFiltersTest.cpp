#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Support/FilterReference.h"

namespace tavrel {
namespace {

using test::matches;
using test::noisePicture;
using test::Picture;
using test::Pixel;
using test::RecordingTarget;
using test::ReferencePicture;
using test::Rgba;

double mixed(double first, double second, double fraction) { return first * (1 - fraction) + second * fraction; }

/// The picture that `filter` makes of two stills.
Picture processTwo(const Picture& first, const Picture& second, const std::shared_ptr<TavrelGPUImageFilter>& filter) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(second));
  picture->addTarget(filter, 1);
  picture->processImage();
  return process(first, filter);
}

/// What beautifying makes of the colours around a place, in the coordinates of the picture.
Rgba beautified(const ReferencePicture& picture, double s, double t, double beauty, double bright, double tone) {
  const Rgba center = picture.sampled(s, t);
  const auto green = [&](int dx, int dy) {
    return picture.sampled(s + 2.0 * dx / picture.width, t + 2.0 * dy / picture.height)[1];
  };
  double sum = 22 * center[1];
  for (const int sign : {-1, 1}) {
    sum += green(0, 10 * sign) + green(10 * sign, 0) + 2 * (green(0, 6 * sign) + green(6 * sign, 0));
    for (const int other : {-1, 1}) {
      sum += green(5 * sign, 8 * other) + green(8 * sign, 5 * other) + 2 * green(4 * sign, 4 * other) +
             3 * green(2 * sign, 2 * other);
    }
  }
  double highPass = center[1] - sum / 62 + 0.5;
  for (int i = 0; i < 5; ++i) {
    highPass = highPass <= 0.5 ? 2 * highPass * highPass : 1 - 2 * (1 - highPass) * (1 - highPass);
  }
  const double alpha = std::pow(0.299 * center[0] + 0.587 * center[1] + 0.114 * center[2], 1 - 0.6 * beauty);
  const double toning = 0.1 + 0.3 * tone;
  Rgba toned;
  for (std::size_t i = 0; i < 3; ++i) {
    const double c = center[i];
    const double smooth = std::clamp(std::pow(c + (c - highPass) * alpha * 0.1, 1 - 0.3 * beauty), 0.0, 1.0);
    const double screened = mixed(c, 1 - (1 - smooth) * (1 - c), alpha);
    const double lightened = mixed(screened, std::max(smooth, c), alpha);
    toned[i] = mixed(lightened, 2 * c * smooth + c * c - 2 * c * c * smooth, toning);
  }
  const double saturation[3][3] = {{1.1102, -0.0598, -0.061}, {-0.0774, 1.0826, -0.1186}, {-0.0228, -0.0228, 1.1772}};
  Rgba result{0, 0, 0, 1};
  for (std::size_t i = 0; i < 3; ++i) {
    const double saturated = toned[0] * saturation[i][0] + toned[1] * saturation[i][1] + toned[2] * saturation[i][2];
    result[i] = mixed(toned[i], saturated, toning) + 0.6 * (bright - 0.5);
  }
  return result;
}

TEST(BeautifyFilter, SmoothsAsTheMathematicsSays) {
  const Picture source = noisePicture(61, 47, true, 48);
  const ReferencePicture reference(source);
  struct Levels {
    double beauty, bright, tone;
  };
  for (const auto& [beauty, bright, tone] : {Levels{0.5, 0.5, 0.5}, {0, 0.5, 0}, {1, 0.2, 1}, {0.7, 1, 0.3}}) {
    const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
    filter->setToneLevel(tone);
    filter->setBrightLevel(bright);
    filter->setBeautyLevel(beauty);
    const ReferencePicture expected(61, 47, [&, beauty = beauty, bright = bright, tone = tone](int x, int y) {
      return beautified(reference, (x + 0.5) / 61, (y + 0.5) / 47, beauty, bright, tone);
    });
    EXPECT_TRUE(matches(process(source, filter), expected)) << beauty << ", " << bright << ", " << tone;
  }
}

TEST(BeautifyFilter, KeepsTheUnturnedSize) {
  const Picture source = noisePicture(40, 30, false, 48);
  const ReferencePicture reference(source);
  const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
  filter->setInputRotation(kTavrelGPUImageRotateLeft, 0);
  const ReferencePicture expected(
      40, 30, [&](int x, int y) { return beautified(reference, 1 - (y + 0.5) / 30, (x + 0.5) / 40, 0.5, 0.5, 0.5); });
  EXPECT_TRUE(matches(process(source, filter), expected));
}

TEST(BeautifyFilter, TheToneWaitsForTheNextBeautyLevel) {
  const Picture source = noisePicture(16, 16, false, 48);
  const auto filter = std::make_shared<TavrelGPUImageBeautifyFilter>();
  const Picture before = process(source, filter);
  filter->setToneLevel(1);
  EXPECT_EQ(largestDifference(process(source, filter), before), 0);
  filter->setBeautyLevel(0.5);
  EXPECT_GT(largestDifference(process(source, filter), before), 3);
}

Rgba recolored(const Rgba& color) {
  const auto& [red, green, blue, alpha] = color;
  return {red * red, 1 - green * 0.8, 0.2 + 0.5 * blue + 0.3 * red * green, alpha};
}

Picture tableOf(Rgba (*function)(const Rgba&)) {
  return {512, 512, [&](int x, int y) {
            const Rgba color = function({x % 64 / 63.0, y % 64 / 63.0, (y / 64 * 8 + x / 64) / 63.0, 1});
            const auto byte = [](double component) { return static_cast<int>(std::lround(component * 255)); };
            return Pixel{byte(color[0]), byte(color[1]), byte(color[2]), 255};
          }};
}

TEST(LookupFilter, RecoloursByTheTableAndKeepsAlpha) {
  const Picture source = noisePicture(33, 19, true);
  const ReferencePicture reference(source);
  const Picture table = tableOf(recolored);
  for (const double intensity : {1.0, 0.6, 0.0}) {
    for (const auto mode : {kTavrelGPUImageNoRotation, kTavrelGPUImageRotateRight, kTavrelGPUImageFlipVertical}) {
      const auto filter = std::make_shared<TavrelGPUImageLookupFilter>();
      EXPECT_EQ(filter->intensity(), 1.0);
      filter->setIntensity(intensity);
      filter->setInputRotation(mode, 0);
      const ReferencePicture turned = reference.turned(mode);
      const ReferencePicture expected(turned.width, turned.height, [&](int x, int y) {
        const Rgba color = turned.clampedAt(x, y);
        Rgba result = recolored(color);
        for (std::size_t i = 0; i < 4; ++i) result[i] = mixed(color[i], result[i], intensity);
        return result;
      });
      EXPECT_TRUE(matches(processTwo(source, table, filter), expected)) << intensity << ", mode " << mode;
    }
  }
}

TEST(LookupFilter, TheIdentityTableChangesNothing) {
  const Picture source = {256, 24, [](int x, int y) {
                            return Pixel{(x + y) % 256, (x * 7 + y * 31) % 256, (x * 3 + y * 11) % 256, 255};
                          }};
  const auto filter = std::make_shared<TavrelGPUImageLookupFilter>();
  const Picture result = processTwo(source, test::pictureOf(*TavrelLookupIdentityImage()), filter);
  EXPECT_LE(largestDifference(result, source), 1);
}

TEST(AlphaBlendFilter, LaysTheSecondOverTheFirst) {
  const Picture below = noisePicture(31, 17, true);
  const Picture above = noisePicture(31, 17, true, 90);
  for (const double mix : {1.0, 0.5, 0.0}) {
    const auto filter = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    EXPECT_EQ(filter->mix(), 0.5);
    filter->setMix(mix);
    filter->setInputRotation(kTavrelGPUImageFlipHorizontal, 1);
    const ReferencePicture first(below);
    const ReferencePicture second = ReferencePicture(above).turned(kTavrelGPUImageFlipHorizontal);
    const ReferencePicture expected(31, 17, [&](int x, int y) {
      Rgba color = first.clampedAt(x, y);
      const Rgba& over = second.clampedAt(x, y);
      for (std::size_t i = 0; i < 3; ++i) color[i] = mixed(color[i], over[i], over[3] * mix);
      return color;
    });
    EXPECT_TRUE(matches(processTwo(below, above, filter), expected)) << "mix " << mix;
  }
}

TEST(PlacementFilter, LaysAPictureOfAnyProportionsOnTheFrame) {
  const Picture frame(24, 16, [](int, int) { return Pixel{10, 20, 30, 255}; });
  const Picture sticker = test::distinctPicture(4, 2);
  const auto placed = [&](const Rect& rectangle, double degrees) {
    const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(sticker));
    const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
    const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    blend->setMix(1);
    const auto radians = static_cast<float>(degrees * std::numbers::pi / 180);
    placement->setAffineTransform(TavrelGetTransform(rectangle, {24, 16}, radians));
    placement->forceProcessingAtSize({24, 16});
    picture->addTarget(placement);
    placement->addTarget(blend, 1);
    picture->processImage();
    return process(frame, blend);
  };
  const auto expected = [&](int left, int top, const Picture& shown) {
    return Picture(24, 16, [&](int x, int y) {
      const bool isInside = x >= left && x < left + shown.width && y >= top && y < top + shown.height;
      return isInside ? shown.at(x - left, y - top) : frame.at(x, y);
    });
  };
  EXPECT_LE(largestDifference(placed({{3, 5}, {4, 2}}, 0), expected(3, 5, sticker)), 1);
  // A quarter turn clockwise about its centre.
  const Picture turned(2, 4, [&](int x, int y) { return sticker.at(y, 1 - x); });
  EXPECT_LE(largestDifference(placed({{8, 9}, {4, 2}}, 90), expected(9, 8, turned)), 1);
  // Partly outside.
  EXPECT_LE(largestDifference(placed({{-2, 15}, {4, 2}}, 0), expected(-2, 15, sticker)), 1);
}

class BufferTest : public ::testing::Test {
 protected:
  BufferTest() { buffer_->addTarget(target_); }

  void SetUp() override { target_->events.clear(); }
  /// The framebuffer delivered is kept, so that no two frames share one.
  void deliver(int time) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize({4, 4}, false);
      buffer_->setInputSize({4, 4}, 0);
      buffer_->setInputFramebuffer(framebuffer, 0);
      buffer_->newFrameReadyAtTime(MediaTime::make(time, 1), 0);
      frames_.push_back(std::move(framebuffer));
    });
  }
  /// The number of the frame handed on last, and the time that came with it.
  std::pair<int, double> last() const {
    std::pair<int, double> result{-1, -1};
    for (const auto& event : target_->events) {
      if (event.name == "frame") result.second = event.time.seconds();
      if (event.name != "framebuffer") continue;
      result.first = static_cast<int>(std::find(frames_.begin(), frames_.end(), event.framebuffer) - frames_.begin());
    }
    return result;
  }
  int locksOn(std::size_t frame) const { return static_cast<int>(frames_[frame]->framebufferReferenceCount()); }

  const std::shared_ptr<TavrelGPUImageBuffer> buffer_ = std::make_shared<TavrelGPUImageBuffer>();
  const std::shared_ptr<RecordingTarget> target_ = std::make_shared<RecordingTarget>();
  std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>> frames_;
};

TEST_F(BufferTest, EmitsTheFrameBeforeWithTheTimeOfTheNew) {
  const std::pair<int, double> expected[] = {{0, 0}, {0, 1}, {1, 2}, {2, 3}};
  for (int i = 0; i < 4; ++i) {
    deliver(i);
    EXPECT_EQ(last(), expected[i]);
  }
  // The test's own lock, and the buffer's on the newest.
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(locksOn(i), i == 3 ? 2 : 1) << i;
}

TEST_F(BufferTest, PassesItsRotationToItsTargets) {
  buffer_->setInputRotation(kTavrelGPUImageRotateLeft, 0);
  deliver(0);
  EXPECT_EQ(target_->count("rotation 1"), 1);
}

TEST_F(BufferTest, ShrinkingGivesUpTheNewestAndItsEndAll) {
  buffer_->setBufferSize(3);
  for (int i = 0; i < 3; ++i) deliver(i);
  buffer_->setBufferSize(0);
  EXPECT_EQ(buffer_->bufferSize(), 3U);
  buffer_->setBufferSize(1);
  EXPECT_EQ(locksOn(0), 2);
  EXPECT_EQ(locksOn(1), 1);
  EXPECT_EQ(locksOn(2), 1);
  deliver(3);
  EXPECT_EQ(last(), (std::pair<int, double>{0, 3}));

  const auto unfilled = std::make_shared<TavrelGPUImageBuffer>();
  unfilled->setBufferSize(5);
  unfilled->setBufferSize(2);  // holds nothing that it could give up
  EXPECT_EQ(unfilled->bufferSize(), 2U);
}

TEST_F(BufferTest, ReturnsItsFramesAtItsEnd) {
  const auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize({4, 4}, false);
  {
    const auto buffer = std::make_shared<TavrelGPUImageBuffer>();
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      buffer->setInputSize({4, 4}, 0);
      buffer->setInputFramebuffer(framebuffer, 0);
      buffer->newFrameReadyAtTime(MediaTime::zero(), 0);
    });
    EXPECT_EQ(framebuffer->framebufferReferenceCount(), 2);
  }
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 1);
}

TEST_F(BufferTest, ReturnsTheFramesThatComeWhileItIsPrevented) {
  deliver(0);
  buffer_->setPreventRendering(true);
  for (int i = 1; i < 6; ++i) deliver(i);
  // The test's own lock, and the buffer's on the frame of before.
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(locksOn(i), i == 0 ? 2 : 1) << i;
  buffer_->setPreventRendering(false);
  deliver(6);
  EXPECT_EQ(last(), (std::pair<int, double>{0, 6}));
  EXPECT_EQ(locksOn(0), 1);
}

}  // namespace
}  // namespace tavrel
