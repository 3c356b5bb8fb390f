#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <string_view>

namespace tavrel {

/// Date, time with milliseconds, and zone of log lines: "2026-03-01 12:00:00.250 +0100". Keeps the text of the last
/// second, since many lines share one. One thread at a time.
class LogTimeText {
 public:
  enum class Zone { utc, local };

  /// `format` is fmt's for date and time down to the second; a `separator`, three digits and the zone follow.
  LogTimeText(Zone zone, const char* format, char separator) : zone_(zone), format_(format), separator_(separator) {}

  /// Valid until the next call.
  std::string_view text(std::chrono::system_clock::time_point time);

 private:
  const Zone zone_;
  const char* const format_;
  const char separator_;
  std::time_t second_ = 0;
  std::size_t milliseconds_ = 0;  // where they stand in the text
  std::string text_;
};

}  // namespace tavrel
