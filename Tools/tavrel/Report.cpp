#include "Report.h"

#include <algorithm>

namespace tavrel::tool {

std::string jsonString(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      quoted += '\\';
      quoted += character;
    } else if (static_cast<unsigned char>(character) < 0x20) {
      quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
    } else {
      quoted += character;
    }
  }
  return quoted + '"';
}

void ProgressBar::show(double fraction, std::string_view caption) {
  if (!isTerminal_) return;
  constexpr int kWidth = 30;
  const int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
  fmt::print(stderr, "\r[{:#<{}}{:<{}}] {}\x1b[K", "", filled, "", kWidth - filled, caption);
  std::fflush(stderr);
  isShown_ = true;
}

void ProgressBar::clear() {
  if (!isShown_) return;
  fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
  isShown_ = false;
}

}  // namespace tavrel::tool
