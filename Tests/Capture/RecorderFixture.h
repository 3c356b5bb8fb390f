#pragma once

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Support/CameraTestSupport.h"
#include "Support/RecorderTestSupport.h"
#include "Support/RecordingObservation.h"

namespace tavrel::test {

/// A recorder of the virtual devices, which writes into a folder of its own.
class TavrelRecorderTest : public CaptureClassTest {
 protected:
  TavrelRecorderTest()
      : folder_(std::filesystem::temp_directory_path() / ("tavrel-recorder-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~TavrelRecorderTest() override {
    recorder_.reset();
    std::filesystem::remove_all(folder_);
  }

  void make(const TavrelRecorderConfiguration& configuration = {.size = {320, 240}}) {
    auto made = TavrelRecorder::create(configuration);
    ASSERT_TRUE(made.has_value()) << made.error().description;
    recorder_ = std::move(*made);
    recorder_->setEventHandler([this](const TavrelRecorderEvent& event) { events_.push_back(event); });
  }
  void startWriting(const char* name = "movie.mov", const TavrelRecordingOptions& options = {}) {
    const auto writing = recorder_->startWriting(folder_ / name, options);
    ASSERT_TRUE(writing.has_value()) << writing.error().description;
  }
  void startRecording(const TavrelRecorderConfiguration& configuration = {.size = {320, 240}}) {
    ASSERT_NO_FATAL_FAILURE(make(configuration));
    ASSERT_NO_FATAL_FAILURE(startWriting());
    ASSERT_TRUE(startDevices(*recorder_));
    ASSERT_TRUE(moreFrames(2));
  }
  bool moreFrames(std::uint64_t count) const {
    return runUntil([this, until = recorder_->statistics().framesWritten + count] {
      return recorder_->statistics().framesWritten >= until;
    });
  }
  RecordingObservation finish() {
    const auto finished = finishMovie(*recorder_);
    EXPECT_TRUE(finished.has_value());
    if (!finished) return {};
    recording_ = *finished;
    EXPECT_FALSE(recording_.error) << recording_.error->description;
    return RecordingObservation::of(recording_.file);
  }
  bool hears(TavrelRecorderEvent::Kind kind) const {
    return runUntil([this, kind] {
      return std::any_of(events_.begin(), events_.end(), [kind](const auto& event) { return event.kind == kind; });
    });
  }

  const std::filesystem::path folder_;
  std::shared_ptr<TavrelRecorder> recorder_;
  TavrelRecording recording_;
  std::vector<TavrelRecorderEvent> events_;
};

}  // namespace tavrel::test
