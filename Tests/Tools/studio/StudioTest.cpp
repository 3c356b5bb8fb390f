#include "Model/Studio.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "Support/GraphTestSupport.h"
#include "TavrelCaptureTesting.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::studio {
namespace {

using namespace std::chrono_literals;

/// The studio without its window, before the virtual devices.
class StudioTest : public test::ProgramTest {
 protected:
  void SetUp() override {
    VirtualCaptureSystem::shared().reset();
    Settings settings;
    settings.size = {320, 240};
    settings.framesPerSecond = 15;
    settings.camera = VirtualCaptureSystem::kBackCamera;
    settings.movieFolder = file("movies");
    settings.stillFolder = file("stills");
    ASSERT_TRUE(settings.save(file("settings.json")));
    studio = std::make_unique<Studio>(file("settings.json"));
    studio->open();
  }
  void TearDown() override {
    studio.reset();
    VirtualCaptureSystem::shared().reset();
  }

  static bool becomes(const std::function<bool()>& isRight) { return RunLoop::main().runUntil(isRight, 30s); }
  std::string said() const {
    const Message* const message = studio->messages().current(steadySeconds());
    return message ? message->text : "";
  }
  /// Waits until the recorder has written so many frames more.
  bool records(std::uint64_t frames) const {
    const auto before = studio->recorder()->statistics().framesWritten;
    return becomes([&] { return studio->recorder()->statistics().framesWritten >= before + frames; });
  }
  static double secondsOf(const std::filesystem::path& movie) {
    const auto lines = test::probe("-show_entries format=duration -of csv=p=0 '" + movie.string() + "'");
    return lines.empty() ? 0 : std::stod(lines.front());
  }
  bool hasFile() const {
    return becomes([&] { return !studio->latestFile().empty(); });
  }

  std::unique_ptr<Studio> studio;
};

TEST_F(StudioTest, RecordsPausesResumesAndTakesStills) {
  const auto processed = [&] { return studio->recorder()->camera()->statistics().processed; };
  const auto waitFor = [&](std::uint64_t frames) {
    return becomes([&, end = processed() + frames] { return processed() >= end; });
  };
  studio->toggleRecording();
  const auto started = processed();
  ASSERT_TRUE(studio->isRecording()) << said();
  ASSERT_TRUE(records(5));
  studio->togglePause();
  const auto paused = processed();
  EXPECT_TRUE(studio->isPaused());
  ASSERT_TRUE(waitFor(15));
  studio->takeStill();
  ASSERT_TRUE(hasFile());
  EXPECT_EQ(studio->latestFile().parent_path(), file("stills"));
  const auto still = ImageSource::createWithFile(studio->latestFile());
  ASSERT_TRUE(still);
  EXPECT_EQ((*still)->properties(0).width, 320U);
  const auto resumed = processed();
  studio->togglePause();
  ASSERT_TRUE(records(5));
  studio->chooseMicrophone("");
  EXPECT_NE(said().find("stop it first"), std::string::npos) << said();
  studio->messages().dismiss();
  studio->toggleRecording();
  const auto stopped = processed();
  ASSERT_TRUE(becomes([&] { return studio->latestFile().extension() == ".mov"; }));
  EXPECT_NE(said().find("is recorded"), std::string::npos) << said();
  const auto frames = test::probe("-count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 '" +
                                  studio->latestFile().string() + "'");
  ASSERT_EQ(frames.size(), 1U);
  constexpr std::uint64_t kOnTheirWay = 3;
  EXPECT_GE(std::stoul(frames[0]), 10U);
  EXPECT_LE(std::stoul(frames[0]), (paused - started) + (stopped - resumed) + kOnTheirWay) << "nothing of the pause";
}

TEST_F(StudioTest, ClosingWhileItRecordsCompletesTheFile) {
  studio->toggleRecording();
  ASSERT_TRUE(records(8));
  studio.reset();
  const auto movie = std::filesystem::directory_iterator(file("movies"))->path();
  EXPECT_GT(secondsOf(movie), 6 / 15.0);
  EXPECT_TRUE(std::filesystem::exists(file("settings.json")));
}

TEST_F(StudioTest, ACameraThatIsUnpluggedIsSaidAndTheMovieGoesOnUntilItIsBack) {
  studio->toggleRecording();
  ASSERT_TRUE(records(5));
  VirtualCaptureSystem::shared().setConnected(VirtualCaptureSystem::kBackCamera, false);
  ASSERT_TRUE(becomes([&] { return said().find("Connect it again") != std::string::npos; })) << said();
  EXPECT_TRUE(studio->isRecording());
  EXPECT_EQ(studio->devices().cameras().size(), 1U) << "it is no longer to be chosen";
  VirtualCaptureSystem::shared().setConnected(VirtualCaptureSystem::kBackCamera, true);
  ASSERT_TRUE(becomes([&] { return said() == "The camera is back."; })) << said();
  EXPECT_EQ(studio->devices().cameras().size(), 2U);
  EXPECT_TRUE(records(5));
}

TEST_F(StudioTest, WhatCannotBeDoneIsSaidWithWhatToDo) {
  studio->togglePause();
  EXPECT_NE(said().find("nothing to pause"), std::string::npos) << said();
  std::ofstream(file("text.png")) << "no picture";
  studio->addFile(file("text.png"));
  EXPECT_NE(said().find("text.png"), std::string::npos) << said();
  studio->messages().dismiss();
  std::ofstream(file("broken.cube")) << "LUT_3D_SIZE x\n";
  studio->addFile(file("broken.cube"));
  EXPECT_NE(said().find("broken.cube: line 1"), std::string::npos) << said();
  studio->messages().dismiss();
  EXPECT_TRUE(studio->effects().all().empty());
  studio->settings().movieFolder = "/proc/none";
  studio->toggleRecording();
  EXPECT_FALSE(studio->isRecording());
  EXPECT_NE(said().find("/proc/none"), std::string::npos) << said();
  studio->messages().dismiss();
  studio->settings().camera = "a camera of yesterday";
  studio->open();
  EXPECT_NE(said().find("a camera of yesterday"), std::string::npos) << said();
  EXPECT_TRUE(studio->recorder()) << "another one is used";
}

TEST_F(StudioTest, StartsAgainAsItWasLeft) {
  studio->effects().add(makeBeauty());
  studio->effects().all()[0]->setLevel(0, 0.25);
  studio->setFormat({160, 120}, 10);
  studio->chooseCamera(std::string(VirtualCaptureSystem::kFrontCamera));
  studio.reset();
  studio = std::make_unique<Studio>(file("settings.json"));
  studio->open();
  ASSERT_TRUE(studio->recorder()) << said();
  EXPECT_EQ(studio->recorder()->camera()->deviceID(), VirtualCaptureSystem::kFrontCamera);
  EXPECT_EQ(studio->recorder()->camera()->size(), (Size{160, 120}));
  ASSERT_EQ(studio->recorder()->camera()->captureEffects().size(), 2U) << "with the one for the picture before";
  const auto beauty =
      std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(studio->recorder()->camera()->captureEffects()[1]);
  ASSERT_TRUE(beauty);
  EXPECT_EQ(beauty->beautyLevel(), 0.25);
  std::ofstream(file("settings.json")) << "{ torn";
  studio = nullptr;  // writes over it
  std::ofstream(file("settings.json")) << "{ torn";
  studio = std::make_unique<Studio>(file("settings.json"));
  EXPECT_NE(said().find("settings.json"), std::string::npos) << said();
  EXPECT_TRUE(std::filesystem::exists(file("settings.json.damaged")));
}

TEST_F(StudioTest, AStickerMovesWithinTheRunningChain) {
  const test::Picture red(40, 40, [](int, int) { return test::Pixel{255, 0, 0, 255}; });
  ASSERT_TRUE(ImageDestination::write(test::imageOf(red), file("red.png")).has_value());
  studio->addFile(file("red.png"), Point{40, 40});
  const auto sticker = studio->selected();
  ASSERT_TRUE(sticker);
  EXPECT_EQ(sticker->place()->rectangle, (Rect{{20, 20}, {40, 40}}));
  const auto& camera = studio->recorder()->camera();
  const auto processed = camera->statistics().processed;
  ASSERT_TRUE(becomes([&] { return camera->statistics().processed > processed + 2; }));
  const auto lost = camera->statistics().whileSwitching;
  for (int i = 0; i <= 100; ++i) sticker->setPlace({{{20.0 + 2 * i, 100}, {40, 40}}, 0});
  EXPECT_EQ(camera->statistics().whileSwitching, lost);
  studio->takeStill();
  ASSERT_TRUE(hasFile());
  const auto still = ImageSource::createWithFile(studio->latestFile()).value()->imageAtIndex(0).value();
  const auto isRed = [&](std::size_t x, std::size_t y) {
    const auto* p = still->dataProvider()->bytes().data() + y * still->bytesPerRow() + x * 4;
    return p[2] > 230 && p[1] < 25 && p[0] < 25;
  };
  for (const std::size_t x : {221U, 258U}) {
    EXPECT_TRUE(isRed(x, 101) && isRed(x, 138)) << x;
  }
  EXPECT_FALSE(isRed(218, 120) || isRed(261, 120) || isRed(40, 40) || isRed(240, 98) || isRed(240, 141));
}

}  // namespace
}  // namespace tavrel::studio
