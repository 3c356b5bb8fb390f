#include "Model/RecordingMeter.h"

#include <fmt/format.h>

#include <cmath>
#include <vector>

namespace tavrel::studio {

void RecordingMeter::start(const std::filesystem::path& file, double now) {
  file_ = file;
  since_ = now;
  paused_ = 0;
  pausedSince_.reset();
  looked_.reset();
  fileSize_ = 0;
}

void RecordingMeter::setPaused(bool isPaused, double now) {
  if (isPaused && !pausedSince_) pausedSince_ = now;
  if (isPaused || !pausedSince_) return;
  paused_ += now - *pausedSince_;
  pausedSince_.reset();
}

void RecordingMeter::stop() { file_.clear(); }

void RecordingMeter::look(const std::filesystem::path& folder, double expected, double now) {
  constexpr double kInterval = 0.25;
  if (looked_ && now - *looked_ < kInterval) return;
  looked_ = now;
  std::error_code error;
  if (!file_.empty()) {
    const auto size = std::filesystem::file_size(file_, error);
    fileSize_ = error ? 0 : size;
  }
  // The folder need not be there before the first recording.
  auto present = folder;
  while (!std::filesystem::exists(present, error) && present.has_relative_path()) present = present.parent_path();
  const auto space = std::filesystem::space(present, error);
  room_ = error ? std::nullopt : std::optional(space.available);
  constexpr double kEnoughToTell = 5;
  const bool isMeasured = !file_.empty() && seconds(now) > kEnoughToTell && fileSize_ > 0;
  bytesPerSecond_ = isMeasured ? static_cast<double>(fileSize_) / seconds(now) : expected;
}

double RecordingMeter::seconds(double now) const {
  if (file_.empty()) return 0;
  return pausedSince_.value_or(now) - since_ - paused_;
}

std::optional<double> RecordingMeter::minutesLeft() const {
  if (!room_ || bytesPerSecond_ <= 0) return std::nullopt;
  return static_cast<double>(*room_) / bytesPerSecond_ / 60;
}

std::string clockText(double seconds) {
  const auto whole = static_cast<long>(std::floor(std::max(0.0, seconds)));
  if (whole >= 3600) return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
  return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::string sizeText(double bytes) {
  if (bytes < 1e6) return fmt::format("{:.0f} kB", bytes / 1e3);
  return bytes < 1e9 ? fmt::format("{:.1f} MB", bytes / 1e6) : fmt::format("{:.2f} GB", bytes / 1e9);
}

std::string lossText(const TavrelRecordingStatistics& statistics) {
  const std::pair<std::uint64_t, const char*> reasons[] = {
      {statistics.late, "came faster than the effects could take them"},
      {statistics.busy, "while the effects were busy"},
      {statistics.whileSwitching, "while cameras or effects changed"},
      {statistics.lostInWriter, "while the encoder was busy"},
  };
  std::vector<std::string> parts;
  for (const auto& [count, reason] : reasons) {
    if (count > 0) parts.push_back(fmt::format("{} {}", count, reason));
  }
  if (parts.empty()) return {};
  const auto lost = statistics.framesLost();
  return fmt::format("{} frame{} lost: {}", lost, lost == 1 ? "" : "s", fmt::join(parts, ", "));
}

double usualBytesPerSecond(Size size, double framesPerSecond, double quality) {
  // Bits a pixel of a talking head, by H.264.
  const double bits = 0.02 + 0.12 * quality * quality;
  return size.width * size.height * framesPerSecond * bits / 8;
}

}  // namespace tavrel::studio
