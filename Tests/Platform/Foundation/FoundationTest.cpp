#include <gtest/gtest.h>

#include <fstream>
#include <numbers>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

void expectNear(Point actual, Point expected) {
  EXPECT_NEAR(actual.x, expected.x, 1e-12);
  EXPECT_NEAR(actual.y, expected.y, 1e-12);
}

TEST(Geometry, RectanglesOfAnAspectRatioFitInsideOthers) {
  const auto fit = [](Size ratio) { return rectWithAspectRatioInsideRect(ratio, {{0, 0}, {100, 100}}); };
  EXPECT_EQ(fit({200, 100}), (Rect{{0, 25}, {100, 50}}));
  EXPECT_EQ(fit({1, 4}), (Rect{{37.5, 0}, {25, 100}}));
  EXPECT_EQ(fit({0, 4}), (Rect{{50, 50}, {0, 0}}));
  const Rect mirrored = {{10, 10}, {-4, -6}};
  EXPECT_EQ(mirrored.minX(), 6);
  EXPECT_EQ(mirrored.maxY(), 10);
}

TEST(Geometry, StepsApplyBeforeTheTransformBuiltSoFar) {
  constexpr double kQuarter = std::numbers::pi / 2;
  const AffineTransform transform = AffineTransform{}.translatedBy(10, 0).rotatedBy(kQuarter).scaledBy(2, 3);
  expectNear(transform.apply({1, 0}), {10, 2});  // scaled to (2, 0), turned to (0, 2), moved to (10, 2)
  expectNear(transform.apply({0, 1}), {7, 0});
  const Transform3D both =
      Transform3D::makeAffine(transform).concatenating(Transform3D::makeRotation(-kQuarter, 0, 0, 5));
  expectNear(both.affine().apply({1, 0}), {2, -10});
  EXPECT_EQ(Transform3D::makeAffine(transform).affine(), transform);
  EXPECT_EQ(Transform3D::makeRotation(1, 0, 0, 0), Transform3D{});
}

TEST(NotificationCenter, CallsTheObserversOfANameInOrder) {
  NotificationCenter center;
  std::vector<int> calls;
  const int subject = 0;
  center.addObserver("tick", [&](std::string_view, const void*) { calls.push_back(1); });
  NotificationCenter::ObserverToken second = 0;
  center.addObserver("tick", [&](std::string_view, const void*) { center.removeObserver(second); });
  second = center.addObserver("tick", [&](std::string_view, const void*) { calls.push_back(2); });
  center.addObserver(
      "tick", [&](std::string_view, const void* object) { calls.push_back(object ? 3 : 0); }, &subject);
  center.post("tock");
  EXPECT_TRUE(calls.empty());
  center.post("tick");
  center.post("tick", &subject);
  EXPECT_EQ(calls, (std::vector<int>{1, 1, 3}));
}

TEST(Console, AMessageIsWrittenAsItIs) {
  const test::ConsoleCapture console;
  ConsoleLog::write("100 % {} of it");
  ConsoleLog::write("{} frames", 3);
  EXPECT_EQ(console.messages(), (std::vector<std::string>{"100 % {} of it", "3 frames"}));
}

TEST(FatalAssertionDeathTest, WritesItsTextAndAborts) {
  EXPECT_EXIT(fatalAssertion("status {}", -4), ::testing::KilledBySignal(SIGABRT), "Assertion failure: status -4\n");
}

TEST(Data, FilesAreReadWholeOrRefusedWithTheReason) {
  const auto file = std::filesystem::temp_directory_path() / ("tavrel-data-" + std::to_string(getpid()));
  Data bytes(3'000'001);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), 3'000'001);
  EXPECT_EQ(readFile(file).value(), bytes);
  EXPECT_EQ(readFile(file, 1000).error().code, EFBIG);
  std::filesystem::remove(file);
  const auto missing = readFile(file);
  EXPECT_EQ(missing.error().code, ENOENT);
  EXPECT_EQ(missing.error().description, "cannot read " + file.string() + ": No such file or directory");
  EXPECT_EQ(readFile("/").error().code, EISDIR);
}

TEST(Dictionary, NumbersAreFoundInEveryForm) {
  const Dictionary settings = {{"yes", true}, {"whole", std::int64_t{7}}, {"real", 0.5}, {"text", std::string("1")}};
  EXPECT_EQ(numberFor(settings, "yes"), 1.0);
  EXPECT_EQ(numberFor(settings, "whole"), 7.0);
  EXPECT_EQ(numberFor(settings, "real"), 0.5);
  EXPECT_EQ(numberFor(settings, "text"), std::nullopt);
  EXPECT_EQ(numberFor(settings, "none"), std::nullopt);
}

TEST(Version, NumberAndStringAgree) {
  EXPECT_EQ(std::string(TavrelCaptureBaseVersionString).find(fmt::format("{:.1f}.", TavrelCaptureBaseVersionNumber)),
            0U);
}

}  // namespace
}  // namespace tavrel
