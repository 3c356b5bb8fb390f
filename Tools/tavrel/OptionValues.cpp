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
