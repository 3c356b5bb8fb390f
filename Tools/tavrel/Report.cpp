#include "Report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tavrel::tool {

void printJson(const nlohmann::ordered_json& result) {
  // Names of files need not be UTF-8.
  fmt::print("{}\n", result.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
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
