#include "Platform/Media/Private/FFmpegLog.h"

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cstdarg>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

namespace tavrel {
namespace {

std::string& lastLine() {
  thread_local std::string line;
  return line;
}

__attribute__((format(printf, 3, 0))) void remember(void* source, int level, const char* format,
                                                    std::va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  std::array<char, 512> text{};
  int printPrefix = 1;
  av_log_format_line2(source, level, format, arguments, text.data(), text.size(), &printPrefix);
  std::string_view line(text.data());
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.empty()) return;
  try {
    lastLine() = line;
    std::replace(lastLine().begin(), lastLine().end(), '\n', ' ');
  } catch (const std::bad_alloc&) {
    // The line is lost: an exception must not pass through the C code that calls this.
  }
}

}  // namespace

void quietFFmpegLog() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(remember); });
}

std::string takeFFmpegLogLine() { return std::exchange(lastLine(), {}); }

}  // namespace tavrel
