#include "TranscodingProgress.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace tavrel::tool {
namespace {

std::string clockTime(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::ceil(seconds));
  if (whole >= 3600) return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
  return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

}  // namespace

void TranscodingProgress::show(double seconds, std::uint64_t frames) {
  const auto now = Clock::now();
  if (now < next_) return;
  next_ = now + (printsLines_ ? std::chrono::milliseconds(1000) : std::chrono::milliseconds(100));
  seconds = std::max(0.0, seconds);
  const double passed = std::chrono::duration<double>(now - start_).count();
  const double speed = passed > 0 ? seconds / passed : 0;
  const double share = whole_ > 0 ? std::min(1.0, seconds / whole_) : 0;
  const double left = speed > 0 ? std::max(0.0, whole_ - seconds) / speed : 0;
  if (printsLines_) {
    const auto rounded = [](double number) { return std::round(number * 1000) / 1000; };
    const nlohmann::ordered_json line = {{"progress", rounded(share)},
                                         {"seconds", rounded(seconds)},
                                         {"frames", frames},
                                         {"speed", rounded(speed)},
                                         {"left", rounded(left)}};
    fmt::print(stderr, "{}\n", line.dump());
    return;
  }
  std::string caption = whole_ > 0 ? fmt::format("{:.0f}%", std::floor(share * 100)) : fmt::format("{:.1f} s", seconds);
  if (speed > 0) caption += fmt::format(" {:.1f}x", speed);
  if (speed > 0 && whole_ > 0) caption += fmt::format(" {} left", clockTime(left));
  bar_.show(share, caption);
}

}  // namespace tavrel::tool
