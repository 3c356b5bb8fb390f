#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "CaptureRig.h"
#include "Diagnostics.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// One recording by the clock: pauses, switches of the camera and a snapshot at given times.
class Recording {
 public:
  struct Options {
    std::filesystem::path output;
    std::string fileType;
    CaptureRig::Options devices;
    std::optional<double> duration;
    std::optional<double> pauseAt;
    std::optional<double> resumeAt;
    std::optional<double> switchAt;
    std::optional<std::filesystem::path> snapshot;
    double snapshotAt = 0;
    bool hasPreview = false;
  };

  Recording(Options options, EffectChain effects);

  /// Records until the duration is over, somebody interrupts or the file cannot be written any more. The exit status.
  int run(bool printJson, Diagnostics& diagnostics);

 private:
  Expected<void> openPreview();
  void record(ProgressBar& progress);
  void actOnTime();
  void takeSnapshot();
  int perform(bool printJson, Diagnostics& diagnostics);
  int report(bool printJson, Diagnostics& diagnostics) const;
  bool acceptFrame(double seconds);

  const Options options_;
  const EffectChain effects_;
  std::shared_ptr<CaptureRig> rig_;
  std::shared_ptr<Window> window_;
  std::atomic<double> elapsed_ = 0;
  std::atomic<bool> isOver_ = false;
  bool hasSwitched_ = false;
  bool hasAskedForSnapshot_ = false;
  std::atomic<bool> isSnapshotOver_ = true;
  std::optional<std::string> snapshotProblem_;
};

}  // namespace tavrel::tool
