#include "Model/RecordingMeter.h"

#include <gtest/gtest.h>

#include <fstream>

#include "Model/Measurement.h"
#include "Model/Messages.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel::studio {
namespace {

class RecordingMeterTest : public test::ProgramTest {};

TEST_F(RecordingMeterTest, CountsRecordedTimeAndWhatTheDiskHasRoomFor) {
  RecordingMeter meter;
  meter.look(file("not/there/yet"), 1e6, 1);
  ASSERT_TRUE(meter.minutesLeft().has_value());
  const auto room = static_cast<double>(std::filesystem::space(file("")).available) / 1e6 / 60;
  EXPECT_NEAR(*meter.minutesLeft(), room, room * 0.1);

  meter.start(file("movie.mov"), 100);
  EXPECT_EQ(meter.seconds(103), 3);
  meter.setPaused(true, 104);
  EXPECT_EQ(meter.seconds(130), 4);
  meter.setPaused(true, 140);
  meter.setPaused(false, 150);
  EXPECT_EQ(meter.seconds(156), 10);

  std::ofstream(file("movie.mov")) << std::string(20'000, 'x');
  meter.look(file(""), 1e6, 156);
  EXPECT_EQ(meter.fileSize(), 20'000U);
  EXPECT_EQ(meter.bytesPerSecond(), 2000) << "as measured, no longer as expected";
  meter.stop();
  EXPECT_EQ(meter.seconds(160), 0);
}

TEST(RecordingTextTest, TellsTimeSizeAndLosses) {
  EXPECT_EQ(clockText(7.9), "0:07");
  EXPECT_EQ(clockText(754), "12:34");
  EXPECT_EQ(clockText(3723), "1:02:03");
  EXPECT_EQ(sizeText(7'340'000), "7.3 MB");
  EXPECT_EQ(sizeText(2.5e9), "2.50 GB");
  TavrelRecordingStatistics statistics;
  EXPECT_EQ(lossText(statistics), "");
  statistics.busy = 10;
  statistics.lostInWriter = 2;
  EXPECT_EQ(lossText(statistics), "12 frames lost: 10 while the effects were busy, 2 while the encoder was busy");
}

TEST(MessagesTest, AFaultStaysUntilItIsPutAwayAndANoteGoesByItself) {
  Messages messages;
  EXPECT_EQ(messages.current(0), nullptr);
  messages.note("a note");
  messages.fault("a fault");
  EXPECT_EQ(messages.current(1)->text, "a fault");
  EXPECT_EQ(messages.current(1000)->text, "a fault");
  messages.dismiss();
  ASSERT_NE(messages.current(1000), nullptr) << "the note has not been seen yet";
  EXPECT_EQ(messages.current(1001)->text, "a note");
  EXPECT_EQ(messages.current(1002 + Messages::kSecondsOfNote), nullptr);
}

TEST(MeasurementTest, GivesEachNodesTimeAFrameBetweenTwoLooks) {
  Messages messages;
  Measurement measurement(messages);
  TavrelGraphStatistics statistics;
  statistics.framesDelivered = 10;
  statistics.nodes = {{"blur", {.count = 10, .mean = 0.002}, {}}};
  measurement.take(statistics);
  statistics.framesDelivered = 20;
  statistics.nodes = {{"blur", {.count = 20, .mean = 0.003}, {}}, {"view", {.count = 5, .mean = 0.001}, {}}};
  measurement.take(statistics);
  measurement.take(statistics);  // no frame came meanwhile
  ASSERT_EQ(measurement.samples().size(), 2U);
  EXPECT_NEAR(measurement.samples()[0].at(0), 2, 1e-9);
  EXPECT_NEAR(measurement.samples()[1].at(0), 4, 1e-9);
  EXPECT_NEAR(measurement.samples()[1].at(1), 0.5, 1e-9);
  EXPECT_EQ(measurement.names(), (std::vector<std::string>{"blur", "view"}));
}

}  // namespace
}  // namespace tavrel::studio
