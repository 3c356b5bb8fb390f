#include "Report.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tavrel::tool {

void printJson(const nlohmann::ordered_json& result) {
  // Names of files need not be UTF-8.
  fmt::print("{}\n", result.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void ProgressBar::show(double fraction, std::string_view caption) {
  if (!isTerminal_) return;
  winsize window{};
  constexpr int kUsualColumns = 80;
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0;
  // A line that fills the last column may wrap.
  const int columns = (isKnown ? window.ws_col : kUsualColumns) - 1;
  caption = caption.substr(0, static_cast<std::size_t>(columns));
  constexpr int kWidest = 30;
  constexpr int kNarrowest = 5;
  const int width = std::min(kWidest, columns - static_cast<int>(caption.size()) - 3);
  const int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * width);
  const std::string bar = width < kNarrowest ? "" : fmt::format("[{:#<{}}{:<{}}] ", "", filled, "", width - filled);
  fmt::print(stderr, "\r{}{}\x1b[K", bar, caption);
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
