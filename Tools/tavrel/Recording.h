#pragma once

#include <atomic>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "CameraOutputOptions.h"
#include "Diagnostics.h"
#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// A recording with pauses, a switch of the camera and a snapshot at given times.
class Recording {
 public:
  struct Options {
    std::filesystem::path output;
    std::optional<double> duration;
    std::optional<double> pauseAt;
    std::optional<double> resumeAt;
    std::optional<double> switchAt;
    std::optional<std::filesystem::path> snapshot;
    double snapshotAt = 0;
    double zoom = 1;
    bool hasPreview = false;
    bool isFragmented = false;
    Dictionary videoSettings;
    Dictionary audioSettings;
  };

  /// `cameraOutput` must outlive this.
  Recording(Options options, TavrelRecorderConfiguration configuration, const CameraOutputOptions& cameraOutput);

  /// Records until the duration is over, the user interrupts or the file cannot be written. Returns the exit status.
  int run(bool printJson, Diagnostics& diagnostics);

 private:
  void record(const Interruption& interruption);
  void actOnFrame(double seconds);
  void actOnTime();
  void takeSnapshot();
  int report(const TavrelRecording& recording, bool printJson, Diagnostics& diagnostics) const;

  const Options options_;
  const TavrelRecorderConfiguration configuration_;
  const CameraOutputOptions& cameraOutput_;
  std::shared_ptr<TavrelRecorder> recorder_;
  std::shared_ptr<Window> window_;
  std::atomic<double> elapsed_ = 0;
  std::atomic<double> firstFrameAt_ = std::numeric_limits<double>::infinity();
  bool isOver_ = false;
  bool hasSwitched_ = false;
  bool hasAskedForSnapshot_ = false;
  bool isSnapshotOver_ = true;
  std::optional<std::string> snapshotProblem_;
};

}  // namespace tavrel::tool
