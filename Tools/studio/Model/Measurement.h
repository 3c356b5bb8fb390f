#pragma once

#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Model/Messages.h"
#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// Where the time of frames goes, twice a second while it is looked at. Main thread.
class Measurement {
 public:
  /// Mean milliseconds a frame of each node, in the order of `names`, between two looks.
  using Sample = std::vector<double>;
  static constexpr std::size_t kMostSamples = 120;

  explicit Measurement(Messages& messages) : messages_(messages) {}
  Measurement(const Measurement&) = delete;
  Measurement& operator=(const Measurement&) = delete;
  ~Measurement();

  bool isOn() const { return isOn_; }
  /// Measures from now on, or no more. With a trace on its way it goes on.
  void setOn(bool isOn);
  /// Writes every event into `file` until `stopTrace`.
  void startTrace(const std::filesystem::path& file);
  void stopTrace();
  bool isTracing() const { return !traceFile_.empty(); }
  /// Asks for the statistics when they are due; on another thread, as that waits for the video-processing queue.
  void update(double now);
  /// Takes over what was asked for.
  void take(const TavrelGraphStatistics& statistics);

  const std::vector<std::string>& names() const { return names_; }
  const std::deque<Sample>& samples() const { return samples_; }
  const TavrelGraphStatistics& latest() const { return latest_; }

 private:
  void restart(const std::filesystem::path& traceFile);

  Messages& messages_;
  bool isOn_ = false;
  bool isAsked_ = false;
  double asked_ = 0;
  std::filesystem::path traceFile_;
  std::vector<std::string> names_;
  std::deque<Sample> samples_;
  TavrelGraphStatistics latest_;
  const std::shared_ptr<Measurement*> alive_ = std::make_shared<Measurement*>(this);
};

}  // namespace tavrel::studio
