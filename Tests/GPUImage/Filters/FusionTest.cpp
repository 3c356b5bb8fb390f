#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "GPUImage/Filters/FusionTestSupport.h"

namespace tavrel::test {
namespace {

class Fusion : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* const choice = std::getenv("TAVREL_FUSE");
    if (choice && std::string(choice) == "0") GTEST_SKIP() << "TAVREL_FUSE=0 draws every filter by itself";
  }
};

TEST_F(Fusion, AChainOfEightIsOneDrawAndHoldsFewFramebuffers) {
  constexpr std::uint64_t kFrames = 20;
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::vector<Node> chain;
  for (int i = 0; i < 8; ++i) {
    chain.push_back(i % 4 == 3 ? std::make_shared<TavrelGPUImageFilter>(kTintShader)
                               : std::make_shared<TavrelGPUImageFilter>());
    if (i > 0) chain[chain.size() - 2]->addTarget(chain.back());
  }
  input->addTarget(chain.front());
  const auto target = std::make_shared<RecordingTarget>();
  chain.back()->addTarget(target);
  const auto buffer = pixelBufferOf(distinctPicture(64, 48));

  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const std::int64_t ownedBefore = TavrelGPUImageFramebuffer::ownedCount();
  ASSERT_TRUE(TavrelTracing::start().has_value());
  for (std::uint64_t i = 0; i < kFrames; ++i) {
    input->processCVPixelBuffer(buffer, MediaTime::make(static_cast<std::int64_t>(i), 30), true);
  }
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_LE(TavrelGPUImageFramebuffer::ownedCount() - ownedBefore, 3);
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  for (const auto& node : statistics.nodes) {
    if (node.name != "TavrelGPUImageFilter") continue;
    EXPECT_EQ(node.queueTime.count, 8 * kFrames);
    if (statistics.hasGPUTimes) {
      EXPECT_LE(node.gpuTime.count, kFrames);
    }
  }
  EXPECT_EQ(target->count("frame"), static_cast<int>(kFrames));
}

TEST_F(Fusion, ATableIsDrawnWithTheFiltersAroundIt) {
  if (!TavrelGPUImageColorTableFilter::isSupported()) GTEST_SKIP() << "the driver has no floating-point textures";
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const Node first = std::make_shared<TavrelGPUImageFilter>(kTintShader),
             last = std::make_shared<TavrelGPUImageFilter>();
  const auto table = std::make_shared<TavrelGPUImageColorTableFilter>(colorTable());
  input->addTarget(first);
  first->addTarget(table);
  table->addTarget(last);
  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  const Picture whole = shown(distinctPicture(64, 48), first, last);
  EXPECT_EQ(whole.width, 64);
  ASSERT_TRUE(TavrelTracing::start().has_value());
  for (int i = 0; i < 5; ++i) shown(distinctPicture(64, 48), first, last);
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  std::uint64_t drawings = 0;
  const TavrelGraphStatistics statistics = TavrelTracing::statistics();
  for (const auto& node : statistics.nodes) {
    if (node.name.find("Filter") != std::string::npos) drawings += node.gpuTime.count;
  }
  if (statistics.hasGPUTimes) {
    EXPECT_EQ(drawings, 5U);
  }
}

/// Some of them draw by themselves.
TEST(Memory, AFullSizeChainOfEightHoldsThreeFramebuffersOfItsSize) {
  constexpr int kWidth = 1920, kHeight = 1080;
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto lookup = withSecond(make<TavrelGPUImageLookupFilter>([](auto&) {}), table());
  const std::vector<Node> chain = {std::make_shared<TavrelGPUImageCropFilter>(),
                                   std::make_shared<TavrelGPUImageFilter>(kTintShader),
                                   std::make_shared<Alone<TavrelGPUImageFilter>>(kTintShader),
                                   lookup.fused,
                                   std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageFlipHorizontal),
                                   std::make_shared<Alone<TavrelGPUImageFilter>>(kTintShader),
                                   std::make_shared<TavrelGPUImageFilter>(),
                                   std::make_shared<TavrelGPUImageFilter>(kTintShader)};
  input->addTarget(chain.front(), 0);
  for (std::size_t i = 1; i < chain.size(); ++i) chain[i - 1]->addTarget(chain[i], 0);
  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const std::int64_t ownedBefore = TavrelGPUImageFramebuffer::ownedCount();
  const auto buffer = pixelBufferOf({kWidth, kHeight, [](int, int) { return Pixel{90, 120, 60, 255}; }});
  for (int frame = 0; frame < 3; ++frame) {
    input->processCVPixelBuffer(buffer, MediaTime::make(frame, 30), true);
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    EXPECT_LE(TavrelGPUImageFramebuffer::ownedCount() - ownedBefore, 3);
  }
  EXPECT_GE(TavrelGPUImageFramebuffer::ownedCount() - ownedBefore, 1);
  input->removeAllTargets();
}

TEST_F(Fusion, AStillIsPlacedOnceUntilItChanges) {
  constexpr Size kSize = {32, 24};
  const auto picture = std::make_shared<TavrelGPUImagePicture>(sticker());
  const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
  placement->forceProcessingAtSize(kSize);
  const auto target = std::make_shared<RecordingTarget>();
  placement->addTarget(target);
  picture->addTarget(placement);
  // Locked, so that another drawing must be another framebuffer.
  std::vector<TavrelGPUImageFramebufferLease> placed;
  const auto place = [&] {
    picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      for (const auto& event : target->events) {
        if (event.framebuffer) placed.emplace_back(event.framebuffer);
      }
      target->events.clear();
    });
    return placed.back().get();
  };
  const auto first = place();
  EXPECT_EQ(place(), first);
  placement->setAffineTransform(AffineTransform::makeScale(0.5, 0.5));
  const auto smaller = place();
  EXPECT_NE(smaller, first);
  EXPECT_EQ(place(), smaller);
  picture->updateWithCGImage(table(), false, false);
  EXPECT_NE(place(), smaller);
}

TEST_F(Fusion, AFrameThatWaitsForTheOtherInputIsDrawnBefore) {
  const Picture shownFirst = distinctPicture(16, 12);
  const auto first = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto second = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto copy = std::make_shared<TavrelGPUImageFilter>();
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  blend->setMix(0);
  first->addTarget(copy);
  copy->addTarget(blend, 0);
  second->addTarget(blend, 1);
  blend->useNextFrameForImageCapture();
  const auto buffer = pixelBufferOf(shownFirst);
  first->processCVPixelBuffer(buffer, MediaTime::make(1, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {
    TavrelGPUImageContext::useImageProcessingContext();
    glFinish();
  });
  // The camera's buffer is its own again.
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  std::fill_n(buffer->baseAddress(), buffer->bytesPerRow() * buffer->height(), std::uint8_t{0});
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  second->processCVPixelBuffer(pixelBufferOf(distinctPicture(16, 12)), MediaTime::make(1, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const auto image = blend->newCGImageFromCurrentlyProcessedOutput();
  ASSERT_TRUE(image);
  EXPECT_EQ(largestDifference(pictureOf(*image), shownFirst), 0);
}

TEST_F(Fusion, ProgramsAreMadeBeforeTheFirstFrameAndNothingIsSeenOfIt) {
  constexpr Size kSize = {40, 30};
  const auto tint = std::make_shared<TavrelGPUImageFilter>(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
      "vec4(texture2D(inputImageTexture, textureCoordinate).rg, 0.25, 1.0); }");
  const Pair blend = withSecond(make<TavrelGPUImageAlphaBlendFilter>([](auto& filter) { filter.setMix(1); }), sticker(),
                                kSize, {{5, 6}, {9, 7}});
  const auto watched = std::make_shared<TavrelGPUImageFilter>();
  int blocks = 0;
  watched->setFrameProcessingCompletionBlock([&](TavrelGPUImageOutput&, MediaTime) { ++blocks; });
  const TavrelGPUImageFilter::Chain chain = {tint, blend.fused, watched};
  const Picture source = distinctPicture(40, 30);

  ASSERT_TRUE(TavrelTracing::start().has_value());
  const std::size_t before = TavrelGPUImageFilter::fusedProgramCount();
  for (const bool areFramesComing : {true, false}) {
    TavrelGPUImageFilter::prepareChain(
        chain, kSize, [&] { blend.pictures.front()->processImage(); }, areFramesComing);
  }
  ASSERT_TRUE(TavrelTracing::stop().has_value());
  EXPECT_TRUE(TavrelTracing::statistics().nodes.empty());
  EXPECT_EQ(blocks, 0);
  const std::size_t made = TavrelGPUImageFilter::fusedProgramCount();
  EXPECT_EQ(made - before, 2U) << "with the sticker and without";

  tint->addTarget(blend.fused, 0);
  blend.fused->addTarget(watched);
  blend.pictures.front()->processImage();
  const Picture fused = shown(source, tint, watched);
  EXPECT_EQ(TavrelGPUImageFilter::fusedProgramCount(), made);
  EXPECT_EQ(blocks, 1);
  const auto alone = std::make_shared<Alone<TavrelGPUImageFilter>>();
  const auto aloneTint = std::make_shared<Alone<TavrelGPUImageFilter>>(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
      "vec4(texture2D(inputImageTexture, textureCoordinate).rg, 0.25, 1.0); }");
  aloneTint->addTarget(blend.alone, 0);
  blend.alone->addTarget(alone);
  EXPECT_LE(largestDifference(fused, shown(source, aloneTint, alone)), 1);
}

/// Counts how often it draws, and allows no fusion.
class Counting : public TavrelGPUImageFilter {
 public:
  int draws = 0;

 protected:
  void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* coordinates) override {
    ++draws;
    TavrelGPUImageFilter::renderToTextureWithVertices(vertices, coordinates);
  }
};

TEST_F(Fusion, WhoeverReadsAFrameFindsItDrawn) {
  const Picture source = distinctPicture(20, 10);
  const Picture tinted = {20, 10, [&](int x, int y) { return Pixel{source.at(x, y).r, 0, 255, 255}; }};
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto tint = std::make_shared<TavrelGPUImageFilter>(kTintShader);
  const auto own = std::make_shared<Counting>();
  const auto copy = std::make_shared<TavrelGPUImageFilter>();
  Picture seen;
  // In the middle of a chain: an application's own filter behind it, a block, and two targets of one filter.
  copy->setFrameProcessingCompletionBlock([&](TavrelGPUImageOutput& output, MediaTime) {
    const TavrelGPUImageFramebufferLease frame(output.framebufferForOutput());
    frame.get()->lock();  // which the image ends
    seen = pictureOf(*frame.get()->newCGImageFromFramebufferContents());
  });
  const auto left = std::make_shared<TavrelGPUImageFilter>(), right = std::make_shared<TavrelGPUImageFilter>();
  input->addTarget(tint);
  tint->addTarget(own);
  own->addTarget(copy);
  copy->addTarget(left);
  copy->addTarget(right);
  left->useNextFrameForImageCapture();
  right->useNextFrameForImageCapture();
  input->processCVPixelBuffer(pixelBufferOf(source), MediaTime::make(1, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_EQ(own->draws, 1);
  EXPECT_EQ(largestDifference(seen, tinted), 0);
  for (const auto& end : {left, right}) {
    const auto image = end->newCGImageFromCurrentlyProcessedOutput();
    ASSERT_TRUE(image);
    EXPECT_EQ(largestDifference(pictureOf(*image), tinted), 0);
  }
}

TEST(DeepFilters, DoNotRoundBetweenEachOther) {
  if (!TavrelGPUImageContext::deepTextureOptions()) GTEST_SKIP() << "this driver renders to 8 bits only";
  const auto timesShader = [](const char* factor) {
    return std::string(
               "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { "
               "gl_FragColor = vec4(texture2D(inputImageTexture, textureCoordinate).rgb * ") +
           factor + ", 1.0); }";
  };
  const auto darken = std::make_shared<TavrelGPUImageFilter>(timesShader("0.1"));
  const auto brighten = std::make_shared<TavrelGPUImageFilter>(timesShader("10.0"));
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  input->addTarget(darken);
  darken->addTarget(brighten);
  const auto buffer = pixelBufferOf({256, 1, [](int x, int) { return Pixel{x, x, x, 255}; }});
  TavrelGPUImageContext::setWorksDeep(true);
  brighten->useNextFrameForImageCapture();
  input->processCVPixelBuffer(buffer, MediaTime::make(1, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const auto image = brighten->newCGImageFromCurrentlyProcessedOutput();
  TavrelGPUImageContext::setWorksDeep(false);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->bitsPerPixel(), 64U);
  for (std::size_t x = 0; x < 256; ++x) {
    std::uint16_t red = 0;
    std::memcpy(&red, image->dataProvider()->bytes().data() + x * 8, 2);
    EXPECT_NEAR(red / 257.0, static_cast<double>(x), 0.3);
  }
}

}  // namespace
}  // namespace tavrel::test
