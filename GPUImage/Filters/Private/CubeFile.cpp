#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "GPUImage/Filters/Private/ColorTable.h"

namespace tavrel {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// The word at the front, which `text` loses.
std::string_view takeWord(std::string_view& text) {
  text = trimmed(text);
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text = trimmed(text.substr(word.size()));
  return word;
}

/// What may be shown of a file that may be anything.
std::string excerpt(std::string_view text) {
  std::string shown;
  for (const char character : text.substr(0, 24)) {
    shown += character >= ' ' && character <= '~' ? character : '?';
  }
  return text.size() > 24 ? shown + "…" : shown;
}

class CubeParser {
 public:
  Expected<ColorTable> parse(std::string_view text) {
    while (!text.empty()) {
      ++lineNumber_;
      const std::size_t length = text.find('\n');
      const auto read = readLine(trimmed(text.substr(0, length)));
      if (!read) return tl::unexpected(read.error());
      text = length == std::string_view::npos ? std::string_view() : text.substr(length + 1);
    }
    if (table_.size == 0) return failure("the file has no LUT_1D_SIZE or LUT_3D_SIZE");
    if (table_.colors.size() < expectedRows_) {
      return failure(fmt::format("the file ends after {} of {} rows of colours", table_.colors.size(), expectedRows_));
    }
    return std::move(table_);
  }

 private:
  Expected<void> readLine(std::string_view line) {
    if (line.empty() || line.front() == '#') return {};
    const char first = line.front();
    if ((first >= '0' && first <= '9') || first == '-' || first == '+' || first == '.') return readColor(line);
    std::string_view rest = line;
    const std::string_view keyword = takeWord(rest);
    if (keyword == "TITLE") return {};
    if (keyword == "LUT_1D_SIZE") return readSize(rest, ColorTable::Kind::curves, 65536);
    if (keyword == "LUT_3D_SIZE") return readSize(rest, ColorTable::Kind::lattice, 256);
    if (keyword == "DOMAIN_MIN") {
      return readDomain(keyword, rest, 3, [&](const Color& color) { table_.domainMinimum = color; });
    }
    if (keyword == "DOMAIN_MAX") {
      return readDomain(keyword, rest, 3, [&](const Color& color) { table_.domainMaximum = color; });
    }
    if (keyword == "LUT_1D_INPUT_RANGE" || keyword == "LUT_3D_INPUT_RANGE") {
      return readDomain(keyword, rest, 2, [&](const Color& range) {
        table_.domainMinimum.fill(range[0]);
        table_.domainMaximum.fill(range[1]);
      });
    }
    return failure(fmt::format("\"{}\" is neither a keyword of this format nor a number", excerpt(line)));
  }

  template <typename Setter>
  Expected<void> readDomain(std::string_view keyword, std::string_view text, std::size_t count, const Setter& set) {
    if (!table_.colors.empty()) return failure(fmt::format("{} comes after the colours; it must come first", keyword));
    return readNumbers(text, count).map(set);
  }

  Expected<void> readSize(std::string_view text, ColorTable::Kind kind, std::size_t largest) {
    if (table_.size != 0) return failure("the size of the table is given twice; one 1D or one 3D table can be read");
    std::size_t size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    if (error != std::errc() || end != text.data() + text.size() || size < 2 || size > largest) {
      return failure(fmt::format("the size is \"{}\"; it must be a whole number from 2 to {}", excerpt(text), largest));
    }
    table_.kind = kind;
    table_.size = size;
    expectedRows_ = kind == ColorTable::Kind::curves ? size : size * size * size;
    return {};
  }

  Expected<void> readColor(std::string_view line) {
    if (table_.size == 0) return failure("colours come before LUT_1D_SIZE or LUT_3D_SIZE");
    if (table_.colors.empty()) {
      if (auto checked = checkDomain(); !checked) return checked;
    }
    if (table_.colors.size() == expectedRows_) {
      return failure(fmt::format("there are more rows of colours than the {} that the size asks for", expectedRows_));
    }
    return readNumbers(line, 3).map([&](const Color& color) { table_.colors.push_back(color); });
  }

  Expected<void> checkDomain() const {
    for (std::size_t i = 0; i < 3; ++i) {
      if (table_.domainMinimum[i] < table_.domainMaximum[i]) continue;
      return failure(fmt::format("the domain runs from {} to {}; the second must be the larger",
                                 table_.domainMinimum[i], table_.domainMaximum[i]));
    }
    return {};
  }

  Expected<Color> readNumbers(std::string_view text, std::size_t count) const {
    Color numbers{};
    for (std::size_t i = 0; i < count; ++i) {
      std::string_view word = takeWord(text);
      if (word.empty()) return failure(fmt::format("{} of {} numbers are missing", count - i, count));
      if (word.front() == '+') word.remove_prefix(1);
      const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), numbers[i]);
      if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(numbers[i])) {
        return failure(fmt::format("\"{}\" is not a number", excerpt(word)));
      }
    }
    if (!text.empty()) return failure(fmt::format("\"{}\" follows {} numbers", excerpt(text), count));
    return numbers;
  }

  tl::unexpected<Error> failure(const std::string& what) const {
    return tl::unexpected(
        Error{"lookup", EINVAL, fmt::format("line {}: {}", std::max<std::size_t>(lineNumber_, 1), what)});
  }

  std::size_t lineNumber_ = 0;
  std::size_t expectedRows_ = 0;
  ColorTable table_;
};

}  // namespace

Expected<ColorTable> parseCube(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return CubeParser().parse(text);
}

}  // namespace tavrel
