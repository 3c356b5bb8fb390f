#include "OptionValues.h"

#include <charconv>
#include <cmath>
#include <numbers>

#include "Report.h"

namespace tavrel::tool {

std::vector<double> parseNumbers(std::string_view text, std::size_t fewest, std::size_t most, const char* option,
                                 const char* expected) {
  std::vector<double> numbers;
  const char* position = text.data();
  const char* const end = position + text.size();
  bool isExpected = true;
  while (isExpected) {
    double number = 0;
    const auto [next, error] = std::from_chars(position, end, number);
    isExpected = error == std::errc() && std::isfinite(number) && numbers.size() < most;
    numbers.push_back(number);
    if (next == end) break;
    isExpected = isExpected && *next == ',';
    position = next + 1;
  }
  if (!isExpected || numbers.size() < fewest) {
    throw UsageError(fmt::format("{} {}: expected {}", option, text, expected));
  }
  return numbers;
}

void checkUnitRange(const std::vector<double>& numbers, const char* option, const std::string& value) {
  for (const double number : numbers) {
    if (number < 0 || number > 1) throw UsageError(fmt::format("{} {}: {} is not from 0 to 1", option, value, number));
  }
}

MediaTime parseTime(std::string_view text, const char* option) {
  const auto wrong = [&] {
    return UsageError(fmt::format("{} {}: expected seconds or HH:MM:SS, as 62.5 or 0:01:02.5", option, text));
  };
  std::int64_t microseconds = 0;
  std::string_view rest = text;
  for (int fields = 1;; ++fields) {
    const std::size_t colon = rest.find(':');
    const std::string_view field = rest.substr(0, colon);
    const bool isLast = colon == std::string_view::npos;
    double number = 0;
    const auto [end, error] =
        std::from_chars(field.data(), field.data() + field.size(), number, std::chars_format::fixed);
    const bool isWhole = isLast || number == std::floor(number);
    const double most = fields == 1 ? 1e6 : 60;
    if (error != std::errc() || end != field.data() + field.size() || !(number >= 0 && number < most) || !isWhole ||
        fields > 3) {
      throw wrong();
    }
    microseconds = microseconds * 60 + std::llround(number * 1e6);
    if (isLast) return MediaTime::make(microseconds, 1000000);
    rest = rest.substr(colon + 1);
  }
}

Placement parsePlacement(const std::string& value, const char* option) {
  constexpr const char* kExpected = "FILE@X,Y,W,H or FILE@X,Y,W,H,DEGREES, in pixels";
  const std::size_t at = value.rfind('@');
  if (at == std::string::npos) throw UsageError(fmt::format("{} {}: expected {}", option, value, kExpected));
  const std::vector<double> numbers = parseNumbers(std::string_view(value).substr(at + 1), 4, 5, option, kExpected);
  const Rect rectangle = {{numbers[0], numbers[1]}, {numbers[2], numbers[3]}};
  if (rectangle.size.width <= 0 || rectangle.size.height <= 0) {
    throw UsageError(fmt::format("{} {}: width and height must be more than 0", option, value));
  }
  return {.file = value.substr(0, at),
          .rectangle = rectangle,
          .radians = numbers.size() > 4 ? numbers[4] * std::numbers::pi / 180 : 0};
}

}  // namespace tavrel::tool
