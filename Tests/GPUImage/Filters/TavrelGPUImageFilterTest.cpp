#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::largestDifference;
using test::Picture;
using test::Pixel;
using test::RecordingTarget;

constexpr const char* kTintShader =
    "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform lowp float level; uniform lowp "
    "vec3 color; void main() { gl_FragColor = vec4(color * level, 1.0); }";

/// The picture that each rotation mode makes of `source`, worked out on rows and columns. Row 0 is where t = 0.
Picture turned(const Picture& source, int mode) {
  const int w = source.width;
  const int h = source.height;
  const bool swaps = mode == 1 || mode == 2 || mode == 5 || mode == 6;
  return {swaps ? h : w, swaps ? w : h, [&](int x, int y) {
            switch (mode) {
              case 1: return source.at(w - 1 - y, x);
              case 2: return source.at(y, h - 1 - x);
              case 3: return source.at(x, h - 1 - y);
              case 4: return source.at(w - 1 - x, y);
              case 5: return source.at(y, x);
              case 6: return source.at(w - 1 - y, h - 1 - x);
              case 7: return source.at(w - 1 - x, h - 1 - y);
              default: return source.at(x, y);
            }
          }};
}

class Rotations : public ::testing::TestWithParam<int> {};

TEST_P(Rotations, MovePixelsExactlyAndAgreeWithThePointFormula) {
  const auto mode = static_cast<TavrelGPUImageRotationMode>(GetParam());
  const Picture source = test::distinctPicture(7, 4);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  filter->setInputRotation(mode, 0);
  const Picture result = process(source, filter);
  EXPECT_EQ(largestDifference(result, turned(source, GetParam())), 0);
}

INSTANTIATE_TEST_SUITE_P(All, Rotations, ::testing::Range(0, 8));

TEST(Filter, RotationTablesAndPoints) {
  const Point point = {0.25, 0.125};
  const Point expected[] = {{0.25, 0.125}, {0.875, 0.25}, {0.125, 0.75}, {0.25, 0.875},
                            {0.75, 0.125}, {0.125, 0.25}, {0.875, 0.75}, {0.75, 0.875}};
  for (std::uint64_t mode = 0; mode < 8; ++mode) {
    EXPECT_EQ(TavrelGPUImageFilter::rotatedPoint(point, static_cast<TavrelGPUImageRotationMode>(mode)), expected[mode]);
  }
  EXPECT_EQ(TavrelGPUImageFilter::textureCoordinatesForRotation(static_cast<TavrelGPUImageRotationMode>(8)), nullptr);
  EXPECT_EQ(TavrelGPUImageFilter::rotatedPoint(point, static_cast<TavrelGPUImageRotationMode>(8)), (Point{0, 0}));
}

TEST(Filter, SizesFollowRotationAndForcedSizes) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  filter->setInputRotation(kTavrelGPUImageRotateRight, 0);
  filter->setInputSize({720, 1280}, 0);
  EXPECT_EQ(filter->outputFrameSize(), (Size{1280, 720}));
  filter->setInputRotation(kTavrelGPUImageNoRotation, 0);

  filter->forceProcessingAtSizeRespectingAspectRatio({100, 100});
  filter->setInputSize({200, 100}, 0);
  EXPECT_EQ(filter->sizeOfFBO(), (Size{100, 50}));
  filter->forceProcessingAtSize({40, 30});
  EXPECT_EQ(filter->sizeOfFBO(), (Size{40, 30}));
  filter->forceProcessingAtSize({});
  filter->setInputSize({200, 100}, 0);
  EXPECT_EQ(filter->sizeOfFBO(), (Size{200, 100}));
  filter->forceProcessingAtSizeRespectingAspectRatio({});
  EXPECT_EQ(filter->sizeOfFBO(), (Size{0, 0}));
}

TEST(Filter, FiltersOfOneProgramKeepTheirOwnUniforms) {
  const auto dark = std::make_shared<TavrelGPUImageFilter>(kTintShader);
  const auto bright = std::make_shared<TavrelGPUImageFilter>(kTintShader);
  ASSERT_EQ(dark->program(), bright->program());
  dark->setFloat(0.2F, "level");
  bright->setFloat(1.0F, "level");
  dark->setFloatVec3({1, 0, 0}, "color");
  bright->setFloatVec3({0, 1, 1}, "color");
  const Picture source = test::distinctPicture(3, 3);
  EXPECT_EQ(process(source, dark).at(1, 1), (Pixel{51, 0, 0, 255}));
  EXPECT_EQ(process(source, bright).at(1, 1), (Pixel{0, 255, 255, 255}));
  EXPECT_EQ(process(source, dark).at(1, 1), (Pixel{51, 0, 0, 255}));
  dark->setFloat(0.4F, "level");
  EXPECT_EQ(process(source, dark).at(1, 1), (Pixel{102, 0, 0, 255}));
}

TEST(Filter, EveryKindOfUniformReachesTheShader) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>(
      "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp mat3 m3; uniform highp "
      "mat4 m4; uniform highp vec2 point; uniform highp vec2 size; uniform highp vec4 v4; uniform highp float list[3]; "
      "uniform int count; void main() { gl_FragColor = vec4(m3[2][0] + m4[3][1], point.x + size.y, v4.w + list[2], "
      "float(count) / 255.0); }");
  const auto location = [&](const char* name) {
    GLint found = -1;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      found = filter->program()->uniformIndex(name);
    });
    return found;
  };
  constexpr GLfloat kStep = 1.0F / 255;
  TavrelGPUMatrix3x3 m3{};
  m3[6] = 10 * kStep;
  TavrelGPUMatrix4x4 m4{};
  m4[13] = 20 * kStep;
  const GLfloat list[] = {0, 0, 50 * kStep};
  filter->setMatrix3f(m3, location("m3"), filter->program());
  filter->setMatrix4f(m4, location("m4"), filter->program());
  filter->setPoint({30.0 / 255, 0}, "point");
  filter->setSize({0, 40.0 / 255}, "size");
  filter->setFloatVec4({0, 0, 0, 60 * kStep}, location("v4"));
  filter->setFloatArray(list, 3, location("list[0]"));
  filter->setInteger(200, "count");
  const Picture result = process(test::distinctPicture(2, 2), filter);
  EXPECT_LE(largestDifference(result, {2, 2, [](int, int) { return Pixel{30, 70, 110, 200}; }}), 1);
}

TEST(Filter, BackgroundShowsWhereNothingIsDrawn) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>(
      "varying highp vec2 textureCoordinate; void main() { if (textureCoordinate.x < 0.5) discard; gl_FragColor = "
      "vec4(1.0); }");
  filter->setBackgroundColor(0.2F, 0.4F, 0.6F, 1);
  const Picture result = process(test::distinctPicture(4, 2), filter);
  EXPECT_EQ(result.at(0, 0), (Pixel{51, 102, 153, 255}));
  EXPECT_EQ(result.at(3, 1), (Pixel{255, 255, 255, 255}));
}

TEST(Filter, FramesAreHandedOnInOrderAndLocksAreReturned) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto target = std::make_shared<RecordingTarget>();
  const auto ignored = std::make_shared<RecordingTarget>();
  ignored->isIgnored = true;
  int completions = 0;
  filter->setFrameProcessingCompletionBlock([&](TavrelGPUImageOutput& output, MediaTime time) {
    EXPECT_EQ(&output, filter.get());
    EXPECT_EQ(time, MediaTime::make(7, 30));
    EXPECT_EQ(target->count("frame"), 0);
    ++completions;
  });
  input->addTarget(filter);
  filter->addTarget(target, 2);
  filter->addTarget(ignored);
  target->events.clear();
  ignored->events.clear();
  input->processCVPixelBuffer(test::pixelBufferOf(test::distinctPicture(6, 4)), MediaTime::make(7, 30), true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});

  EXPECT_EQ(completions, 1);
  ASSERT_EQ(target->names(), (std::vector<std::string>{"framebuffer", "size", "frame"}));
  EXPECT_EQ(target->events[1].size, (Size{6, 4}));
  EXPECT_EQ(target->events[2].time, MediaTime::make(7, 30));
  EXPECT_EQ(target->events[2].slot, 2);
  EXPECT_TRUE(ignored->events.empty());
  // Nobody locked it, so it went back to the cache.
  EXPECT_EQ(target->events[0].framebuffer->framebufferReferenceCount(), 0);
  EXPECT_EQ(filter->framebufferForOutput(), nullptr);
}

TEST(Filter, WhilePreventedNothingIsDrawnOrPassedOn) {
  const auto input = std::make_shared<TavrelGPUImageFilter>();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto target = std::make_shared<RecordingTarget>();
  filter->addTarget(target);
  target->events.clear();
  const auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize({4, 4}, false);
  filter->setPreventRendering(true);
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    filter->setInputSize({4, 4}, 0);
    filter->setInputFramebuffer(framebuffer, 0);
    EXPECT_EQ(framebuffer->framebufferReferenceCount(), 2);
    filter->newFrameReadyAtTime(MediaTime::zero(), 0);
  });
  EXPECT_EQ(framebuffer->framebufferReferenceCount(), 1);
  EXPECT_TRUE(target->events.empty());
  EXPECT_TRUE(isZero(filter->outputFrameSize()));
}

TEST(Filter, TheEndIsPassedOnOnce) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto target = std::make_shared<RecordingTarget>();
  filter->addTarget(target);
  filter->endProcessing();
  filter->endProcessing();
  EXPECT_EQ(target->count("end"), 1);
}

TEST(Filter, AnImageThatNobodyAskedForIsNotWaitedForLong) {
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  EXPECT_EQ(filter->newCGImageFromCurrentlyProcessedOutput(), nullptr);
  filter->useNextFrameForImageCapture();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(filter->newCGImageFromCurrentlyProcessedOutput(), nullptr);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(2900));
  EXPECT_LE(waited, std::chrono::seconds(10));
}

TEST(Filter, ALongChainGivesTheSamePixels) {
  const Picture source = test::distinctPicture(64, 33);
  const auto first = std::make_shared<TavrelGPUImageFilter>();
  std::shared_ptr<TavrelGPUImageFilter> last = first;
  for (int i = 0; i < 7; ++i) {
    const auto next = std::make_shared<TavrelGPUImageFilter>();
    last->addTarget(next);
    last = next;
  }
  EXPECT_EQ(largestDifference(process(source, first, last), source), 0);
}

TEST(FilterDeathTest, AShaderThatDoesNotLinkStopsTheProgramAfterItsLogs) {
  EXPECT_DEATH(TavrelGPUImageFilter("void main() { gl_FragColor = nonsense; }"),
               "Program link log: (.|\n)*Fragment shader compile log: (.|\n)*nonsense(.|\n)*Vertex shader compile log: "
               "(.|\n)*Filter shader link failed");
}

}  // namespace
}  // namespace tavrel
