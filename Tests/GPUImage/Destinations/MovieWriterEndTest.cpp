// How recordings end: finished, cancelled, failed or before they began, and who is told.
#include "MovieWriterTestSupport.h"

namespace tavrel::test {
namespace {

using MovieWriterEndTest = MovieWriterTest;
using MovieWriterDeathTest = MovieWriterTest;

TEST_F(MovieWriterEndTest, CancellingRemovesTheFile) {
  create();
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  writer_->cancelRecording();
  EXPECT_FALSE(writer_->isRecording());
  EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::cancelled);
  EXPECT_FALSE(std::filesystem::exists(file_));
  EXPECT_TRUE(finishingCallsBack());
  EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::cancelled);
}

TEST_F(MovieWriterEndTest, FinishingBeforeTheStartOnlyCallsBack) {
  create();
  EXPECT_TRUE(finishingCallsBack());
  EXPECT_EQ(writer_->assetWriter()->status(), AssetWriterStatus::unknown);
  EXPECT_EQ(writer_->duration(), MediaTime::zero());
}

TEST_F(MovieWriterEndTest, TheEndIsToldOnceToABlockButEachTimeToADelegate) {
  class Delegate : public TavrelGPUImageMovieWriterDelegate {
   public:
    void movieRecordingCompleted() override { ++completions; }
    int completions = 0;
  };
  create();
  const auto delegate = std::make_shared<Delegate>();
  writer_->setDelegate(delegate);
  writer_->endProcessing();
  writer_->endProcessing();
  EXPECT_EQ(delegate->completions, 2);
  int blocks = 0;
  writer_->setCompletionBlock([&] { ++blocks; });
  writer_->endProcessing();
  writer_->endProcessing();
  EXPECT_EQ(blocks, 1);
  EXPECT_EQ(delegate->completions, 2);
}

TEST_F(MovieWriterEndTest, AFileThatCannotBeCreatedIsToldAndHurtsNobody) {
  const ConsoleCapture console;
  file_ = "/no such folder/movie.mov";
  createNotLive();
  ASSERT_TRUE(writer_->error().has_value());
  EXPECT_TRUE(console.contains("Error: "));
  EXPECT_TRUE(console.contains("/no such folder"));
  writer_->setHasAudioTrack(true);
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  sendSound(MediaTime::make(0, 30));
  writer_->finishRecording();
  writer_->cancelRecording();
}

// An application starts its next recording from the handler of the last one, on the writer's queue.
TEST_F(MovieWriterEndTest, AFinishHandlerMayBuildTheNextGraph) {
  createNotLive();
  writer_->startRecording();
  sendFrame(MediaTime::make(0, 30));
  const auto nextFile = file_.string() + ".next.mov";
  std::promise<void> done;
  writer_->finishRecordingWithCompletionHandler([&] {
    const auto next = std::make_shared<TavrelGPUImageMovieWriter>(nextFile, Size{kWidth, kHeight});
    next->startRecording();
    next->finishRecording();
    done.set_value();
  });
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  std::filesystem::remove(nextFile);
}

TEST_F(MovieWriterDeathTest, MisuseStopsTheProgramWithItsText) {
  for (const char* missing : {kVideoCodecKey, kVideoWidthKey, kVideoHeightKey}) {
    Dictionary settings = requiredSettings();
    settings.erase(missing);
    EXPECT_DEATH(TavrelGPUImageMovieWriter(file_, Size{kWidth, kHeight}, kFileTypeQuickTimeMovie, settings),
                 "OutputSettings is missing required parameters.");
  }
  EXPECT_DEATH(
      {
        create();
        writer_->startRecording();
        writer_->setEncodingLiveVideo(false);
      },
      "Can not change Encoding Live Video while recording");
}

}  // namespace
}  // namespace tavrel::test
