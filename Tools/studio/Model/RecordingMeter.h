#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// What a person wants to know of a recording while it runs. Times are in seconds on any steady clock. Main thread.
class RecordingMeter {
 public:
  void start(const std::filesystem::path& file, double now);
  void setPaused(bool isPaused, double now);
  void stop();
  /// Looks at the file and the disk, four times a second at most. `expected` bytes a second are assumed until the file
  /// has grown for some seconds.
  void look(const std::filesystem::path& folder, double expected, double now);

  /// Recorded time, without pauses.
  double seconds(double now) const;
  std::uintmax_t fileSize() const { return fileSize_; }
  /// How long the disk has room for; nothing if that is not known.
  std::optional<double> minutesLeft() const;
  double bytesPerSecond() const { return bytesPerSecond_; }

 private:
  std::filesystem::path file_;
  double since_ = 0;
  double paused_ = 0;
  std::optional<double> pausedSince_;
  std::optional<double> looked_;
  std::uintmax_t fileSize_ = 0;
  std::optional<std::uintmax_t> room_;
  double bytesPerSecond_ = 0;
};

/// "0:07", "12:34", "1:02:03".
std::string clockText(double seconds);
/// "7.3 MB".
std::string sizeText(double bytes);
/// "12 frames lost: 10 while the effects were busy, 2 while the encoder was busy"; empty without losses.
std::string lossText(const TavrelRecordingStatistics& statistics);
/// What a movie of this size and rate needs, as long as none was measured.
double usualBytesPerSecond(Size size, double framesPerSecond, double quality);

}  // namespace tavrel::studio
