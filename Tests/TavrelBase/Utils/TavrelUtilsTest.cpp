#include "TavrelBase/Utils/TavrelUtils.h"

#include <cmath>
#include <thread>

#include "Platform/Dispatch/RunLoop.h"
#include "Support/LogTestSupport.h"

namespace tavrel {
namespace {

using TavrelUtilsTest = test::LogTest;

TEST_F(TavrelUtilsTest, StatusZeroSucceedsAndClearsTheError) {
  std::optional<Error> error = TavrelNewError(-4002, "left over");
  EXPECT_TRUE(TavrelCheckStatus(0, "opening", &error));
  EXPECT_FALSE(error);
  EXPECT_TRUE(TavrelCheckStatus(0, "opening"));
}

TEST_F(TavrelUtilsTest, AFailedStatusIsLoggedAndReturned) {
  const auto logger = std::make_shared<test::RecordingLogger>();
  std::vector<std::string> tags;
  logger->onMessage = [&](const TavrelDDLogMessage& message) {
    tags.emplace_back(message.tag());
    EXPECT_EQ(message.flag(), 1U);
  };
  TavrelDDLog::addLogger(logger);
  const std::pair<std::int32_t, std::string> expected[] = {{0x666D743F, "opening {}: fmt?"},
                                                           {0x7E20417E, "opening {}: ~ A~"},
                                                           {-50, "opening {}: -50"},
                                                           {0x666D7400, "opening {}: 1718449152"},
                                                           {0x666D747F, "opening {}: 1718449279"}};
  for (const auto& [status, text] : expected) {
    std::optional<Error> error;
    EXPECT_FALSE(TavrelCheckStatus(status, "opening {}", &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "com.TavrelBase.ErrorDomain");
    EXPECT_EQ(error->code, -4002);
    EXPECT_EQ(error->description, text);
    EXPECT_EQ(logger->texts().back(), text);
  }
  EXPECT_FALSE(TavrelCheckStatus(-1, "no one asks"));
  EXPECT_EQ(tags, std::vector<std::string>(6, "TavrelUtils"));
}

TEST_F(TavrelUtilsTest, MainThreadDispatchRunsInlineThereAndWaitsElsewhere) {
  int runs = 0;
  TavrelDispatchSyncMain([&] { TavrelDispatchSyncMain([&] { ++runs; }); });
  EXPECT_EQ(runs, 1);
  std::atomic<bool> hasReturned = false;
  bool ranOnMain = false;
  std::thread caller([&] {
    TavrelDispatchSyncMain([&] { ranOnMain = RunLoop::isMainThread() && !hasReturned; });
    hasReturned = true;
  });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return hasReturned.load(); }, std::chrono::seconds(20)));
  caller.join();
  EXPECT_TRUE(ranOnMain);
}

TEST_F(TavrelUtilsTest, AStickerOverTheWholeFrameStaysAsItIs) {
  EXPECT_EQ(TavrelGetTransform({{0, 0}, {1280, 720}}, {1280, 720}, 0), AffineTransform{});
}

TEST_F(TavrelUtilsTest, AStickerIsScaledTurnedAndMovedInHalvesOfTheWidth) {
  const AffineTransform transform = TavrelGetTransform({{100, 300}, {160, 240}}, {640, 480}, 0.5F);
  // By hand: corners of the unit picture, scaled, turned, moved.
  const double cosine = std::cos(0.5);
  const double sine = std::sin(0.5);
  for (const Point corner : {Point{-1, -1}, Point{1, -0.5}, Point{0, 0}}) {
    const double x = corner.x * 160 / 640;
    const double y = corner.y * 240 / 480;
    const Point placed = transform.apply(corner);
    EXPECT_NEAR(placed.x, x * cosine - y * sine + (180 - 320) / 320.0, 1e-9);
    EXPECT_NEAR(placed.y, x * sine + y * cosine + (420 - 240) / 320.0, 1e-9);
  }
}

}  // namespace
}  // namespace tavrel
