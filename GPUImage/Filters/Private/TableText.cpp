#include "GPUImage/Filters/Private/TableText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>

namespace tavrel {
namespace {

constexpr std::string_view kBlanks = " \t";

}  // namespace

TableText::TableText(std::string_view text) : rest_(text) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (rest_.starts_with(kByteOrderMark)) rest_.remove_prefix(kByteOrderMark.size());
}

bool TableText::next(char comment) {
  while (!rest_.empty()) {
    ++lineNumber_;
    const std::size_t length = std::min(rest_.find_first_of("\r\n"), rest_.size());
    line_ = trimmed(rest_.substr(0, length));
    const bool endsInBoth = rest_.substr(length).starts_with("\r\n");
    rest_.remove_prefix(std::min(length + (endsInBoth ? 2 : 1), rest_.size()));
    if (!line_.empty() && line_.front() != comment) return true;
  }
  return false;
}

Expected<std::vector<float>> TableText::numbers(std::string_view text) const {
  std::vector<float> numbers;
  while (!text.empty()) {
    std::string_view word = takeWord(text);
    const std::string_view whole = word;
    if (word.front() == '+') word.remove_prefix(1);
    float& number = numbers.emplace_back();
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(number))
      return failure(fmt::format("\"{}\" is not a number", excerpt(whole)));
  }
  return numbers;
}

Expected<std::vector<float>> TableText::numbers(std::string_view text, std::size_t count) const {
  std::string_view rest = text;
  std::string_view counted;
  for (std::size_t i = 0; i < count && !rest.empty(); ++i) takeWord(rest);
  counted = text.substr(0, text.size() - rest.size());
  auto numbers = this->numbers(trimmed(counted));
  if (!numbers) return numbers;
  if (numbers->size() < count)
    return failure(fmt::format("{} of {} numbers are missing", count - numbers->size(), count));
  if (!rest.empty()) return failure(fmt::format("\"{}\" follows {} numbers", excerpt(rest), count));
  return numbers;
}

Expected<Color> TableText::color(std::string_view text) const {
  Color numbers{};
  for (float& number : numbers) {
    std::string_view word = takeWord(text);
    if (word.empty()) return failure(fmt::format("{} of 3 numbers are missing", &numbers[2] - &number + 1));
    const std::string_view whole = word;
    if (word.front() == '+') word.remove_prefix(1);
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(number))
      return failure(fmt::format("\"{}\" is not a number", excerpt(whole)));
  }
  if (!text.empty()) return failure(fmt::format("\"{}\" follows 3 numbers", excerpt(text)));
  return numbers;
}

Expected<std::size_t> TableText::size(std::string_view text, std::size_t largest) const {
  std::size_t size = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  if (error != std::errc() || end != text.data() + text.size() || size < 2 || size > largest) {
    return failure(fmt::format("the size is \"{}\"; it must be a whole number from 2 to {}", excerpt(text), largest));
  }
  return size;
}

tl::unexpected<Error> TableText::failure(const std::string& what) const {
  return tl::unexpected(
      Error{"lookup", EINVAL, fmt::format("line {}: {}", std::max<std::size_t>(lineNumber_, 1), what)});
}

std::string_view TableText::trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view TableText::takeWord(std::string_view& text) {
  text = trimmed(text);
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text = trimmed(text.substr(word.size()));
  return word;
}

std::string TableText::excerpt(std::string_view text) {
  std::string shown;
  for (const char character : text.substr(0, 24)) {
    shown += character >= ' ' && character <= '~' ? character : '?';
  }
  return text.size() > 24 ? shown + "…" : shown;
}

}  // namespace tavrel
