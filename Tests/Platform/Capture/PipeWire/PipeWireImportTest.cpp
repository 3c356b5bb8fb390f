// Cameras whose buffers the GPU reads where they are: on displays that import memory of devices, such as that of
// Tests/Drivers, and cameras of files that pass for such memory.
#include <gbm.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>

#include "ImportedPictures.h"
#include "PipeWireFixture.h"
#include "PipeWireProducer.h"
#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Graphics/GraphicsDisplay.h"
#include "Platform/Graphics/LentPixelBuffer.h"
#include "Support/CameraMatrix.h"
#include "Support/ConsoleCapture.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

using Kind = PipeWireProducer::Kind;
using ::testing::HasSubstr;

class PipeWireImportTest : public PipeWireServiceTest {
 protected:
  void SetUp() override {
    GraphicsDisplay::shared();
    if (LentPixelBuffer::modifiersOf(GBM_FORMAT_XRGB8888).empty()) {
      GTEST_SKIP() << "this display imports no memory of devices; the driver of the tests does";
    }
    PipeWireServiceTest::SetUp();
    connect();
  }
  void TearDown() override {
    unsetenv("TAVREL_TEST_IMPORT");
    PipeWireServiceTest::TearDown();
  }

  std::unique_ptr<CameraBench> open(const Kind& kind) {
    auto bench = std::make_unique<CameraBench>(awaited("pipewire:" + kind.name), "64x48");
    bench->session->startRunning();
    return bench;
  }
  /// A picture that came after `count` others.
  static std::shared_ptr<PixelBuffer> pictureOf(const CameraBench& bench, std::size_t count = 3) {
    if (!eventually([&] { return bench.frames->count() >= count && bench.frames->latest(); })) {
      const auto delivered = bench.device->delivery();
      throw std::runtime_error(bench.session->runtimeError().value_or(Error()).description +
                               (delivered ? delivered->description() : ""));
    }
    return bench.frames->latest()->imageBuffer();
  }
  static void record(const char* format, const char* fault, const char* memory = "DmaBuf, imported") {
    if (!HasFailure()) recordCamera({"PipeWire, played", format, memory, "30", fault});
  }
};

TEST_F(PipeWireImportTest, DrawsPicturesWhereTheyAreInEveryOrderOfColours) {
  const struct {
    Kind kind;
    const char* name;
    std::optional<std::int64_t> modifier;
    const char* fault = "none";
  } cases[] = {
      {{.name = "bgrx", .modifiers = {kTiled, kLinear}, .padding = 64, .offset = 128}, "BGRx", kLinear, "padded rows"},
      {{.name = "unnamed", .isDmaBuf = true, .padding = 12}, "BGRx", {}, "no modifiers"},
      {{.name = "rgbx", .format = SPA_VIDEO_FORMAT_RGBx, .modifiers = {kLinear}}, "RGBx", kLinear},
      {{.name = "bgra", .format = SPA_VIDEO_FORMAT_BGRA, .modifiers = {kLinear}}, "BGRA", kLinear},
      {{.name = "xrgb", .format = SPA_VIDEO_FORMAT_xRGB, .modifiers = {kLinear}}, "xRGB", kLinear},
      {{.name = "xbgr", .format = SPA_VIDEO_FORMAT_xBGR, .modifiers = {kLinear}}, "xBGR", kLinear},
      {{.name = "device", .modifiers = {kExternalOnly, kTiled, kUpsideDown}, .isPlain = false, .isUpsideDown = true},
       "BGRx",
       kUpsideDown,
       "memory that the CPU cannot read"},
      {{.name = "chosen", .modifiers = {kLinear, kTiled, kUpsideDown}, .choosesModifier = true, .isUpsideDown = true},
       "BGRx",
       kUpsideDown,
       "the camera chooses the modifier"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.kind.name);
    Kind kind = each.kind;
    kind.draw = painterOf(kind.format, kind.isUpsideDown);
    PipeWireProducer producer(kind);
    const auto bench = open(kind);
    const auto buffer = pictureOf(*bench);
    EXPECT_EQ(producer.modifier(), each.modifier);
    EXPECT_TRUE(buffer->isLent());
    EXPECT_THAT(bench->device->delivery()->description(), HasSubstr("DmaBuf buffers, imported"));
    const Picture drawn = Graph().draw(buffer);
    EXPECT_EQ(largestDifference(drawn, expectedOf(drawn)), 0) << drawn.at(0, 0) << drawn.at(1, 0) << drawn.at(0, 1);
    EXPECT_EQ(largestDifference(drawn, bytesOf(buffer)), 0) << "the CPU sees the same";
    record(each.name, each.fault);
  }
}

TEST_F(PipeWireImportTest, CopiesNothingInTheSteadyState) {
  const Kind kind = {.name = "steady", .modifiers = {kLinear}, .bufferCount = 8, .draw = painterOf({})};
  PipeWireProducer producer(kind);
  const auto bench = open(kind);
  Graph graph;
  const auto drawSome = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const Picture drawn = graph.draw(pictureOf(*bench, bench->frames->count() + 1));
      ASSERT_EQ(largestDifference(drawn, expectedOf(drawn)), 0);
    }
  };
  drawSome(20);  // each buffer gets its texture
  const auto before = TextureCache::statistics();
  const int missed = producer.missed();
  drawSome(30);
  const auto after = TextureCache::statistics();
  EXPECT_EQ(after.uploads, before.uploads);
  EXPECT_EQ(after.bytesCopied, before.bytesCopied);
  EXPECT_EQ(after.blocksAllocated, before.blocksAllocated);
  EXPECT_EQ(after.texturesCreated, before.texturesCreated);
  EXPECT_EQ(producer.missed(), missed) << "the camera always had a buffer";
  record("BGRx", "none");
}

TEST_F(PipeWireImportTest, TakesFromTheCameraNoMoreBuffersThanItCanSpare) {
  const Kind kind = {.name = "kept", .modifiers = {kLinear}, .bufferCount = 6, .draw = painterOf({})};
  PipeWireProducer producer(kind);
  const auto bench = open(kind);
  std::deque<std::pair<std::shared_ptr<PixelBuffer>, std::uint32_t>> kept;
  for (std::size_t i = 0; i < 12; ++i) {
    const auto buffer = pictureOf(*bench, bench->frames->count() + 1);
    if (!kept.empty() && kept.back().first == buffer) continue;
    kept.emplace_back(buffer, numberOf(Graph().draw(buffer)));
  }
  const auto shared = std::ranges::count_if(kept, [](const auto& each) { return each.first->isLent(); });
  EXPECT_GE(shared, 1);
  EXPECT_LE(shared, 3) << "three stay with the camera";
  const int missed = producer.missed();
  pictureOf(*bench, bench->frames->count() + 30);
  EXPECT_LE(producer.missed(), missed + 1) << "it goes on at its rate";
  EXPECT_FALSE(kept.back().first->isLent()) << "a copy";
  record("BGRx", "pictures are kept");
  // They stay what they were: in place, as copies, and when the camera has ended.
  Graph graph;
  for (const auto& [buffer, number] : kept) EXPECT_EQ(numberOf(graph.draw(buffer)), number);
  bench->session->stopRunning();
  for (const auto& [buffer, number] : kept) {
    const Picture drawn = graph.draw(buffer);
    EXPECT_EQ(numberOf(drawn), number);
    EXPECT_EQ(largestDifference(drawn, expectedOf(drawn)), 0);
    EXPECT_EQ(largestDifference(drawn, bytesOf(buffer)), 0);
  }
  // Whoever writes one does not write into the camera's memory.
  kept.front().first->lockBaseAddress(PixelBufferLock::readWrite);
  kept.front().first->baseAddress()[0] = 99;
  kept.front().first->unlockBaseAddress(PixelBufferLock::readWrite);
  EXPECT_EQ(graph.draw(kept.front().first).at(0, 0).b, 99);
}

TEST_F(PipeWireImportTest, HoldsABufferUntilTheGPUHasReadIt) {
  constexpr std::uint32_t kRow = kWidth * 4;
  const int file = memfd_create("picture", MFD_CLOEXEC);
  std::vector<std::uint8_t> bytes(std::size_t{kRow} * kHeight);
  painterOf({})(0, bytes.data(), kRow, 5);
  ASSERT_EQ(write(file, bytes.data(), bytes.size()), std::ssize(bytes));
  LentPixelBuffer::Picture picture;
  picture.planes[0] = {.format = GBM_FORMAT_XRGB8888, .width = kWidth, .height = kHeight};
  picture.planes[0].parts[0] = {file, 0, kRow};
  const auto lent = LentPixelBuffer::create(picture);
  ASSERT_TRUE(lent.has_value()) << lent.error().description;
  auto buffer = (*lent)->lend();
  buffer = nullptr;
  EXPECT_FALSE((*lent)->isOut()) << "nobody has drawn it";
  buffer = (*lent)->lend();
  const Picture drawn = Graph().draw(buffer);
  EXPECT_EQ(largestDifference(drawn, expectedOf(drawn)), 0);
  buffer = nullptr;
  EXPECT_TRUE(eventually([&] { return !(*lent)->isOut(); }));
  // On a busy machine the GPU may be done before anybody has looked.
  bool wasOut = false;
  for (int i = 0; i < 20 && !wasOut; ++i) {
    Graph graph;
    graph.show((*lent)->lend());
    EXPECT_TRUE((*lent)->isOut()) << "the source has its texture";
    graph.letGo();
    wasOut = (*lent)->isOut();
    EXPECT_TRUE(eventually([&] { return !(*lent)->isOut(); }));
  }
  EXPECT_TRUE(wasOut) << "the GPU takes a while";
  close(file);
}

TEST_F(PipeWireImportTest, MapsWhatTheDisplayRefuses) {
  setenv("TAVREL_TEST_IMPORT", "refuse", 1);
  const ConsoleCapture console;
  const Kind kind = {.name = "refused", .modifiers = {kLinear}, .isPlain = false, .padding = 64, .draw = painterOf({})};
  {
    PipeWireProducer producer(kind);
    const auto bench = open(kind);
    const auto buffer = pictureOf(*bench, 8);
    EXPECT_FALSE(bench->device->delivery()->isInPlace);
    const Picture drawn = Graph().draw(buffer);
    EXPECT_EQ(largestDifference(drawn, expectedOf(drawn)), 0);
  }
  const auto said = console.messages();
  EXPECT_EQ(std::ranges::count_if(
                said, [](const std::string& line) { return line.find("does not take them") < line.size(); }),
            1)
      << ::testing::PrintToString(said);
  record("BGRx", "the GPU refuses the memory", "DmaBuf, mapped");
  // Of what only the GPU could have read the camera has something else.
  const Kind either = {.name = "either", .modifiers = {kUpsideDown}, .draw = painterOf({})};
  PipeWireProducer producer(either);
  const auto bench = open(either);
  const auto buffer = pictureOf(*bench);
  EXPECT_EQ(bench->device->delivery()->memory, "MemFd");
  const Picture drawn = Graph().draw(buffer);
  EXPECT_EQ(largestDifference(drawn, expectedOf(drawn)), 0);
}

TEST_F(PipeWireImportTest, DrawsTheTwoPlanesOfNV12) {
  const struct {
    const char* name;
    spa_video_color_range range;
    std::size_t rowBytes = 0;  // in one block
  } cases[] = {{"limited", SPA_VIDEO_COLOR_RANGE_16_235},
               {"full", SPA_VIDEO_COLOR_RANGE_0_255},
               {"block", SPA_VIDEO_COLOR_RANGE_UNKNOWN, 96}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const auto fill = [&](bool isChroma, std::uint8_t* bytes, std::size_t stride, std::uint32_t number) {
      for (std::size_t y = 0; y < (isChroma ? kHeight / 2 : kHeight); ++y) {
        for (std::size_t x = 0; x < kWidth; ++x) {
          // Chroma that is the same everywhere, since it may be interpolated.
          bytes[y * stride + x] =
              static_cast<std::uint8_t>(isChroma ? (x % 2 == 0 ? 100 : 150) : 40 + (number * 8 + x + y) % 160);
        }
      }
      return stride * (isChroma ? kHeight / 2 : kHeight);
    };
    const Kind kind = {.name = each.name,
                       .format = SPA_VIDEO_FORMAT_NV12,
                       .modifiers = {kLinear},
                       .bufferCount = 6,
                       .padding = each.rowBytes > 0 ? 0U : 32U,
                       .rowBytes = each.rowBytes,
                       .blockBytes = each.rowBytes * kHeight * 3 / 2,
                       .range = each.range,
                       .draw = [&](std::size_t plane, std::uint8_t* bytes, std::size_t stride, std::uint32_t number) {
                         const std::size_t used = fill(plane == 1, bytes, stride, number);
                         return each.rowBytes > 0 ? used + fill(true, bytes + used, stride, number) : used;
                       }};
    PipeWireProducer producer(kind);
    const auto bench = open(kind);
    const auto before = TextureCache::statistics();
    const auto buffer = pictureOf(*bench);
    ASSERT_NE(PixelBuffer::planesOf(buffer), nullptr);
    EXPECT_TRUE(bench->device->delivery()->isInPlace);
    const Picture drawn = Graph().draw(buffer);
    EXPECT_EQ(TextureCache::statistics().uploads, before.uploads);
    EXPECT_EQ(TextureCache::statistics().bytesCopied, before.bytesCopied);
    EXPECT_LE(largestDifference(drawn, bytesOf(buffer)), 3) << drawn.at(0, 0) << bytesOf(buffer).at(0, 0);
    const bool isFull = each.range == SPA_VIDEO_COLOR_RANGE_0_255;
    record(isFull ? "NV12, full range" : "NV12",
           each.rowBytes > 0 ? "padded rows, planes in one block" : "padded rows");
    bench->session->stopRunning();
    EXPECT_LE(largestDifference(Graph().draw(buffer), drawn), 0) << "the camera has ended";
  }
}

}  // namespace
}  // namespace tavrel::test
