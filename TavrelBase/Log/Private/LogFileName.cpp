#include <fmt/chrono.h>

#include <algorithm>
#include <charconv>
#include <ctime>

#include "TavrelBase/Log/Private/LogFileName.h"

namespace tavrel {
namespace {

constexpr std::string_view kExtension = ".log";
constexpr std::string_view kDatePattern = "0000-00-00 00-00";
// Those that the clock can count in nanoseconds.
constexpr std::chrono::year kFirstYear(1678);
constexpr std::chrono::year kLastYear(2261);

std::optional<unsigned> parseNumber(std::string_view digits) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

std::optional<std::chrono::system_clock::time_point> parseDate(std::string_view text) {
  const auto fits = [](char c, char pattern) { return pattern == '0' ? c >= '0' && c <= '9' : c == pattern; };
  if (text.size() != kDatePattern.size() || !std::ranges::equal(text, kDatePattern, fits)) return std::nullopt;
  const auto field = [&](std::size_t start, std::size_t length) { return *parseNumber(text.substr(start, length)); };
  const std::chrono::year year(static_cast<int>(field(0, 4)));
  const std::chrono::year_month_day date(year, std::chrono::month(field(5, 2)), std::chrono::day(field(8, 2)));
  const unsigned hour = field(11, 2);
  const unsigned minute = field(14, 2);
  if (!date.ok() || hour > 23 || minute > 59 || year < kFirstYear || year > kLastYear) return std::nullopt;
  return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute);
}

}  // namespace

std::string LogFileName::make(std::string_view application, std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return fmt::format("{} {:%Y-%m-%d %H-%M}{}", application, parts, kExtension);
}

std::string LogFileName::numbered(std::string_view name, unsigned number) {
  return fmt::format("{} {}{}", name.substr(0, name.size() - kExtension.size()), number, kExtension);
}

std::optional<LogFileName> LogFileName::parse(std::string_view name) {
  if (!name.ends_with(kExtension)) return std::nullopt;
  name.remove_suffix(kExtension.size());
  LogFileName parsed;
  const std::size_t blank = name.rfind(' ');
  if (blank == std::string_view::npos) return std::nullopt;
  if (const auto number = parseNumber(name.substr(blank + 1))) {
    if (*number < 2 || name[blank + 1] == '0') return std::nullopt;
    parsed.number = *number;
    name = name.substr(0, blank);
  }
  if (name.size() <= kDatePattern.size()) return std::nullopt;
  const std::size_t dateStart = name.size() - kDatePattern.size();
  const auto minute = parseDate(name.substr(dateStart));
  if (!minute || name[dateStart - 1] != ' ') return std::nullopt;
  parsed.minute = *minute;
  parsed.application = name.substr(0, dateStart - 1);
  return parsed;
}

}  // namespace tavrel
