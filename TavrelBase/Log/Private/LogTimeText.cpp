#include <fmt/chrono.h>

#include "TavrelBase/Log/Private/LogTimeText.h"

namespace tavrel {

std::string_view LogTimeText::text(std::chrono::system_clock::time_point time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const std::time_t second = std::chrono::system_clock::to_time_t(whole);
  if (text_.empty() || second != second_) {
    std::tm parts{};
    zone_ == Zone::utc ? gmtime_r(&second, &parts) : localtime_r(&second, &parts);
    text_ = fmt::format(fmt::runtime(format_), parts);
    milliseconds_ = text_.size() + 1;
    text_ += fmt::format("{}000 {:%z}", separator_, parts);
    second_ = second;
  }
  auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time - whole).count();
  for (std::size_t digit = 3; digit-- > 0; milliseconds /= 10) {
    text_[milliseconds_ + digit] = static_cast<char>('0' + milliseconds % 10);
  }
  return text_;
}

}  // namespace tavrel
