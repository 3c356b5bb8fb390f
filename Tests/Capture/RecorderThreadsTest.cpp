#include <atomic>
#include <thread>

#include "RecorderFixture.h"
#include "Support/ThreadsTestSupport.h"

namespace tavrel::test {
namespace {

TEST_F(TavrelRecorderTest, MayBeUsedFromManyThreadsWhileItRecords) {
  ASSERT_NO_FATAL_FAILURE(startRecording());
  TavrelRecorder& recorder = *recorder_;
  std::atomic<int> finished = 0, wished = 0, stills = 0;
  const std::vector<std::function<void(int)>> works = {
      [&](int turn) {
        turn % 2 == 0 ? recorder.pause() : recorder.resume();
        recorder.isPaused();
        recorder.setEventHandler([](const TavrelRecorderEvent&) {});
        recorder.setFrameHandler([turn](double) { EXPECT_GE(turn, 0); });
        recorder.setCameraOutput(nullptr);
        recorder.microphone()->setMute(turn % 2 == 0);
      },
      [&](int turn) {
        const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
        recorder.setEffects(turn % 3 == 0 ? std::vector<std::shared_ptr<TavrelCaptureEffect>>()
                                          : std::vector<std::shared_ptr<TavrelCaptureEffect>>{beauty});
        recorder.camera()->captureEffects();
        recorder.statistics();
      },
      [&](int) {
        recorder.snapshotWithCompletion([&](const std::shared_ptr<Image>&, const std::optional<Error>&) { ++stills; });
      },
      [&](int turn) {
        ++wished;
        recorder.finishWritingWithCompletion([&](const Expected<TavrelRecording>&) { ++finished; });
        // Whoever comes second is told that a movie is being written already.
        static_cast<void>(recorder.startWriting(folder_ / (std::to_string(turn) + ".mov")));
        recorder.isWriting();
      },
      [&](int turn) {
        if (turn % 4 == 3) recorder.cancelWriting();
        recorder.statistics();
      }};
  constexpr int kTurns = 8;
  std::atomic<bool> isDone = false;
  std::thread others([&] {
    runTogether(works, kTurns);
    isDone = true;
  });
  EXPECT_TRUE(runUntil([&] { return isDone.load(); }));
  others.join();
  EXPECT_TRUE(runUntil([&] { return finished == wished && stills == kTurns; })) << finished << " " << stills;

  // It records as before.
  recorder.resume();
  recorder.microphone()->setMute(false);
  recorder.cancelWriting();
  ASSERT_NO_FATAL_FAILURE(startWriting("last.mov"));
  ASSERT_TRUE(moreFrames(5));
  const RecordingObservation seen = finish();
  EXPECT_EQ(seen.error, "");
  EXPECT_EQ(seen.frameTimes.size(), recording_.statistics.framesWritten);
}

}  // namespace
}  // namespace tavrel::test
